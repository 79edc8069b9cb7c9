#include "bulletins/BulletinTestSupport.h"

#include "platform/applications/ApplicationDataStore.h"
#include "platform/events/NotificationCenter.h"
#include "platform/records/NotificationSettings.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedSystemService.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <thread>

using namespace tessel;
using namespace tessel::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Kind = SimulatedBulletinService::Event::Kind;

namespace {

// Records to bulletins

struct RecordCase {
    const char* name;
    Value record;
    bool hasBulletin = true;
    std::optional<std::string> message;
    std::optional<BulletinSound> sound;
    Value::Dictionary context;
    int64_t attachment = BulletinRequest::AttachmentTypeNone;
};

Value::Dictionary with(Value::Dictionary record, std::initializer_list<std::pair<const char*, Value>> values)
{
    for (const auto& [key, value] : values)
        record.insert_or_assign(key, value);
    return record;
}

Value::Dictionary without(Value::Dictionary record, const char* key)
{
    record.erase(key);
    return record;
}

const Value::Dictionary remoteContext { { BulletinContextNotificationTypeKey,
    kKTNotificationStoreNotificationTypeRemote } };

class RecordToBulletin : public ProviderTest, public ::testing::WithParamInterface<RecordCase> { };

TEST_P(RecordToBulletin, Builds)
{
    host();
    const auto& expected = GetParam();
    auto bulletin = provider->_bulletinForNotification(expected.record);
    ASSERT_EQ(bulletin.has_value(), expected.hasBulletin);
    if (!bulletin)
        return;
    EXPECT_EQ(bulletin->message, expected.message);
    EXPECT_EQ(bulletin->sound, expected.sound);
    EXPECT_EQ(Value(bulletin->context), Value(expected.context));
    EXPECT_EQ(bulletin->primaryAttachmentType, expected.attachment);
    // What the service hands back later names the record the way the store does.
    auto identifier = KTNotificationStore::uniqueIdentifierForNotification(expected.record);
    EXPECT_EQ(bulletin->publisherBulletinID, identifier);
    EXPECT_EQ(bulletin->recordID, identifier);
    EXPECT_EQ(bulletin->date, expected.record[KTNotificationStoreCreationDateKey].dateValue());
    EXPECT_EQ(bulletin->section, app);
}

INSTANTIATE_TEST_SUITE_P(Cases, RecordToBulletin,
    ::testing::Values(
        RecordCase { "DefaultSoundSentinel",
            with(storedRecord(10), { { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault } }),
            true, "Hello", BulletinSound::systemSound(1015, 1), remoteContext },
        RecordCase { "RingtoneFlagTakesTheSentinelAsAName",
            with(storedRecord(10),
                { { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault },
                    { KTNotificationStoreSoundIsRingtoneKey, true } }),
            true, "Hello", BulletinSound::ringtone(kKTNotificationStoreSoundDefault, {}, false),
            remoteContext },
        RecordCase { "RingtoneFlagOff",
            with(storedRecord(10),
                { { KTNotificationStoreSoundKey, "/sounds/chime.caf" },
                    { KTNotificationStoreSoundIsRingtoneKey, false } }),
            true, "Hello", BulletinSound::systemSoundPath("/sounds/chime.caf", 1), remoteContext },
        RecordCase { "SoundPath",
            with(storedRecord(10), { { KTNotificationStoreSoundKey, "/sounds/chime.caf" } }), true, "Hello",
            BulletinSound::systemSoundPath("/sounds/chime.caf", 1), remoteContext },
        RecordCase {
            "NoDateNoBulletin", without(storedRecord(10), KTNotificationStoreCreationDateKey), false },
        RecordCase { "DateOfAnotherTypeNoBulletin",
            with(storedRecord(10), { { KTNotificationStoreCreationDateKey, "yesterday" } }), false },
        RecordCase { "NotADictionary", Value("AppNotificationMessage"), false },
        RecordCase { "MessageOfAnotherTypeIsNoMessage",
            with(storedRecord(10), { { KTNotificationStoreMessageKey, 42 } }), true, std::nullopt,
            std::nullopt, remoteContext },
        RecordCase { "SoundOfAnotherTypeIsNoSound",
            with(storedRecord(10), { { KTNotificationStoreSoundKey, 7 } }), true, "Hello", std::nullopt,
            remoteContext },
        RecordCase { "RemotePayloadAndLaunchImage",
            with(storedRecord(10),
                { { KTNotificationStoreUserInfoKey, Value::Dictionary { { "k", 1 } } },
                    { KTNotificationStoreLaunchImageKey, "Launch" } }),
            true, "Hello", std::nullopt,
            with(remoteContext,
                { { BulletinContextRemoteNotificationKey, Value::Dictionary { { "k", 1 } } },
                    { BulletinContextLaunchImageKey, "Launch" } }) },
        RecordCase { "LocalRecordKeepsItsDetailsButNotItsUserInfo",
            with(storedRecord(10),
                { { KTNotificationStoreNotificationTypeKey, kKTNotificationStoreNotificationTypeLocal },
                    { KTNotificationStoreUserInfoKey, Value::Dictionary { { "k", 1 } } },
                    { KTNotificationStoreLocalNotificationDataKey, Value::data("abc", 3) } }),
            true, "Hello", std::nullopt,
            { { BulletinContextNotificationTypeKey, kKTNotificationStoreNotificationTypeLocal },
                { BulletinContextLocalNotificationKey, Value::data("abc", 3) } } },
        RecordCase { "ImageReferenceMarksAnAttachment",
            with(storedRecord(10), { { KTNotificationStoreImageURLKey, "file:///tmp/a.png" } }), true,
            "Hello", std::nullopt, remoteContext, BulletinRequest::AttachmentTypeImage }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ProviderTest, ActionTextTitlesTheDefaultActionAndUnlockLabel)
{
    host();
    auto plain = provider->_bulletinForNotification(storedRecord(10));
    ASSERT_TRUE(plain && plain->defaultAction);
    EXPECT_EQ(plain->defaultAction->launchBundleID, app);
    EXPECT_FALSE(plain->defaultAction->appearance);
    EXPECT_FALSE(plain->unlockActionLabel);

    auto titled = provider->_bulletinForNotification(
        with(storedRecord(10), { { KTNotificationStoreActionTextKey, "Reply" } }));
    ASSERT_TRUE(titled && titled->defaultAction && titled->defaultAction->appearance);
    EXPECT_EQ(titled->defaultAction->appearance->title, "Reply");
    EXPECT_EQ(titled->unlockActionLabel, "Reply");
}

// Presenting changes

TEST_F(ProviderTest, PresentsOnlyWhatArrivesAfterItStarted)
{
    auto store = KTNotificationStore::sharedInstance();
    store->saveRemoteNotificationWithTitle({}, "before", {}, {}, {}, {}, {}, {}, app);
    host();
    device.waitUntilIdle();
    EXPECT_THAT(added(), IsEmpty());

    device.advance(1);
    store->saveRemoteNotificationWithTitle("Title", "after", {}, {}, {}, {}, {}, {}, app);
    device.waitUntilIdle();
    auto adds = events(Kind::Add);
    ASSERT_EQ(adds.size(), 1u);
    EXPECT_EQ(adds[0].bulletin->message, "after");
    EXPECT_EQ(adds[0].interrupt, true);
    EXPECT_FALSE(adds[0].destinations);
    EXPECT_THAT(withdrawn(), IsEmpty());
}

TEST_F(ProviderTest, SoundOnlyRecordsGoToDestinationsAndSilentOnesOnlySetTheBadge)
{
    host();
    auto soundOnly
        = with(storedRecord(20, {}), { { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault } });
    auto badgeOnly = with(storedRecord(21, {}), { { KTNotificationStoreBadgeNumberKey, 3 } });
    writeStore({ badgeOnly, soundOnly });
    announceChange();

    auto adds = events(Kind::Add);
    ASSERT_EQ(adds.size(), 1u);
    EXPECT_EQ(adds[0].publisherBulletinID, identifierOf(soundOnly));
    EXPECT_EQ(adds[0].destinations, BulletinDestinations::Default);
    EXPECT_FALSE(adds[0].interrupt);
    EXPECT_EQ(device.systemService().badgeValue(app), Value(3));

    // Remembered, so neither is presented nor badged again.
    announceChange();
    EXPECT_EQ(events(Kind::Add).size(), 1u);
    EXPECT_EQ(device.systemService().badgeHistory().size(), 1u);
}

TEST_F(ProviderTest, PresentsOldestFirstAndWithdrawsWhatLeftTheStore)
{
    auto a = storedRecord(1, "a"), b = storedRecord(2, "b"), c = storedRecord(3, "c");
    writeStore({ b, a });
    host();
    writeStore({ c, b });
    announceChange();
    EXPECT_THAT(added(), ElementsAre(identifierOf(c)));
    EXPECT_THAT(withdrawn(), ElementsAre(identifierOf(a)));

    service.clearEvents(app);
    auto d = storedRecord(4, "d"), e = storedRecord(5, "e");
    writeStore({ e, d, c, b });
    announceChange();
    EXPECT_THAT(added(), ElementsAre(identifierOf(d), identifierOf(e)));
    EXPECT_THAT(withdrawn(), IsEmpty());
}

TEST_F(ProviderTest, CountsDuplicateIdentifiersOneByOne)
{
    auto record = storedRecord(1, "same");
    writeStore({ record });
    host();
    // A second record that names itself the same way is a new one.
    writeStore({ record, record });
    announceChange();
    EXPECT_THAT(added(), ElementsAre(identifierOf(record)));
    EXPECT_THAT(withdrawn(), IsEmpty());

    service.clearEvents(app);
    writeStore({ record });
    announceChange();
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(withdrawn(), ElementsAre(identifierOf(record)));
}

TEST_F(ProviderTest, SkipsEntriesThatCannotBeBulletins)
{
    host();
    auto good = storedRecord(5, "good");
    writeStore({ Value("junk"), without(storedRecord(4, "undated"), KTNotificationStoreCreationDateKey),
        with(storedRecord(3), { { KTNotificationStoreCreationDateKey, 12 } }), Value(7), good });
    announceChange();
    EXPECT_THAT(added(), ElementsAre(identifierOf(good)));
    auto answer = service.requestBulletins(app, {});
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->size(), 1u);
    EXPECT_EQ((*answer)[0].message, "good");
}

TEST_F(ProviderTest, StoreClearWithdrawsEverythingAndInvalidates)
{
    auto a = storedRecord(1, "a"), b = storedRecord(2, "b");
    writeStore({ b, a });
    host();
    KTNotificationStore::sharedInstance()->clearNotificationsForBundleID(app);
    device.waitUntilIdle();
    auto all = service.events(app);
    ASSERT_EQ(all.size(), 3u);
    EXPECT_THAT(withdrawn(), UnorderedElementsAre(identifierOf(a), identifierOf(b)));
    EXPECT_EQ(all.back().kind, Kind::Invalidate);
}

TEST_F(ProviderTest, InvalidatedProviderHearsNothingAndUninstallDropsTheStore)
{
    host();
    provider->invalidate();
    EXPECT_FALSE(provider->proxy());
    KTNotificationStore::sharedInstance()->saveRemoteNotificationWithTitle(
        {}, "late", {}, {}, {}, {}, {}, {}, app);
    device.waitUntilIdle();
    EXPECT_THAT(service.events(app), IsEmpty());

    EXPECT_EQ(stored().size(), 1u);
    provider->uninstall();
    EXPECT_TRUE(KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app).isNull());
}

TEST_F(ProviderTest, DestroyedProviderLeavesTheStoreAlone)
{
    host();
    std::weak_ptr<KTDefaultDataProvider> weak = provider;
    service.removeDataProviderWithSectionID(app);
    provider.reset();
    EXPECT_TRUE(weak.expired());
    KTNotificationStore::sharedInstance()->saveRemoteNotificationWithTitle(
        {}, "late", {}, {}, {}, {}, {}, {}, app);
    device.waitUntilIdle();
    EXPECT_THAT(service.events(app), IsEmpty());
}

// Actions

std::shared_ptr<NotificationCategory> categoryWithActions(
    const std::string& identifier, int defaultCount, int minimalCount)
{
    auto category = std::make_shared<NotificationCategory>(identifier);
    NotificationActions defaults, minimal;
    for (int i = 0; i < defaultCount; ++i)
        defaults.push_back(
            std::make_shared<NotificationAction>("d" + std::to_string(i), "D" + std::to_string(i)));
    for (int i = 0; i < minimalCount; ++i)
        minimal.push_back(
            std::make_shared<NotificationAction>("m" + std::to_string(i), "M" + std::to_string(i)));
    category->setActions(defaults, NotificationAction::ContextDefault);
    category->setActions(minimal, NotificationAction::ContextMinimal);
    return category;
}

std::vector<std::string> identifiers(const std::vector<BulletinAction>& actions)
{
    std::vector<std::string> result;
    for (const auto& action : actions)
        result.push_back(action.identifier);
    return result;
}

struct ActionCase {
    const char* name;
    int defaultCount;
    int minimalCount;
    std::vector<std::string> normal;
    std::vector<std::string> compact;
};

class ActionLimits : public ProviderTest, public ::testing::WithParamInterface<ActionCase> { };

TEST_P(ActionLimits, CutEachLayoutToItsContext)
{
    host();
    const auto& expected = GetParam();
    provider->setCategories({ categoryWithActions("other", 1, 1),
        categoryWithActions("reply", expected.defaultCount, expected.minimalCount) });
    auto bulletin = provider->_bulletinForNotification(
        with(storedRecord(1), { { KTNotificationStoreCategoryKey, "reply" } }));
    ASSERT_TRUE(bulletin);
    EXPECT_EQ(
        identifiers(bulletin->supplementaryActionsForLayout(BulletinRequest::LayoutNormal)), expected.normal);
    EXPECT_EQ(identifiers(bulletin->supplementaryActionsForLayout(BulletinRequest::LayoutCompact)),
        expected.compact);
}

INSTANTIATE_TEST_SUITE_P(Cases, ActionLimits,
    ::testing::Values(ActionCase { "FiveDefaultNoMinimal", 5, 0, { "d0", "d1", "d2", "d3" }, { "d0", "d1" } },
        ActionCase { "OneDefaultNoMinimal", 1, 0, { "d0" }, { "d0" } },
        ActionCase { "MinimalOfItsOwn", 3, 3, { "d0", "d1", "d2" }, { "m0", "m1" } },
        ActionCase { "OnlyMinimal", 0, 1, {}, { "m0" } }, ActionCase { "None", 0, 0, {}, {} }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ProviderTest, ConvertsActionsForTheBulletinService)
{
    host();
    auto category = std::make_shared<NotificationCategory>("mail");
    auto archive = std::make_shared<NotificationAction>("archive", "Archive");
    archive->setDestructive(true);
    archive->setActivationMode(NotificationAction::ActivationModeBackground);
    archive->setAuthenticationRequired(true);
    auto reply = std::make_shared<NotificationAction>("reply", "Reply");
    reply->setBehavior(NotificationAction::BehaviorTextInput);
    reply->setParameters({ { "submit", "Send" } });
    auto odd = std::make_shared<NotificationAction>("odd", "Odd");
    odd->setActivationMode(7);
    odd->setBehavior(9);
    category->setActions({ archive, reply, odd }, NotificationAction::ContextDefault);
    provider->setCategories({ category });

    auto bulletin = provider->_bulletinForNotification(
        with(storedRecord(1), { { KTNotificationStoreCategoryKey, "mail" } }));
    ASSERT_TRUE(bulletin);
    const auto& actions = bulletin->supplementaryActionsForLayout(BulletinRequest::LayoutNormal);
    ASSERT_EQ(actions.size(), 3u);
    EXPECT_EQ(actions[0].appearance, (ActionAppearance { "Archive", ActionAppearance::StyleDestructive }));
    EXPECT_EQ(actions[0].activationMode, BulletinAction::ActivationModeBackground);
    EXPECT_TRUE(actions[0].authenticationRequired);
    EXPECT_EQ(actions[1].appearance, (ActionAppearance { "Reply", ActionAppearance::StyleDefault }));
    EXPECT_EQ(actions[1].behavior, BulletinAction::BehaviorTextInput);
    EXPECT_EQ(Value(actions[1].behaviorParameters), Value(Value::Dictionary { { "submit", "Send" } }));
    // Values the service does not know fall back to the plain ones.
    EXPECT_EQ(actions[2].activationMode, BulletinAction::ActivationModeForeground);
    EXPECT_EQ(actions[2].behavior, BulletinAction::BehaviorDefault);
    for (const auto& action : actions)
        EXPECT_EQ(action.launchBundleID, app);
}

TEST_F(ProviderTest, CategoriesPersistAndUnreadableOnesReadAsNone)
{
    host();
    auto category = categoryWithActions("reply", 2, 1);
    provider->setCategories({ category, categoryWithActions("reply", 2, 1) });
    auto other = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
    auto read = other->categories();
    ASSERT_EQ(read.size(), 1u);
    EXPECT_TRUE(read[0]->isEqual(*category));
    other->invalidate();

    auto dataStore = ApplicationDataStore::storeForApplication(app);
    NotificationSettings::registerArchivableClasses();
    for (const Value& wrong : { Value(category), Value("reply"), Value(Value::Array { Value("reply") }),
             Value(Value::Array { Value(NotificationSettings::settingsForTypes(7, { category })) }) }) {
        // As found on disk by the provider of the next start.
        ASSERT_TRUE(dataStore->setArchivedObject(wrong, KTDefaultDataProvider::categoriesKey));
        auto next = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
        EXPECT_THAT(next->categories(), IsEmpty()) << wrong.description();
        auto bulletin = next->_bulletinForNotification(
            with(storedRecord(1), { { KTNotificationStoreCategoryKey, "reply" } }));
        ASSERT_TRUE(bulletin);
        EXPECT_THAT(bulletin->supplementaryActionsByLayout, IsEmpty());
        next->invalidate();
    }
    ASSERT_TRUE(dataStore->setObject(Value::data("\x01\x02", 2), KTDefaultDataProvider::categoriesKey));
    auto next = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
    EXPECT_THAT(next->categories(), IsEmpty());
    next->invalidate();
    EXPECT_EQ(provider->categories().size(), 1u) << "the provider that wrote them keeps its own";
}

// Requests and clears

TEST_F(ProviderTest, RequestAnswers)
{
    auto empty = storedRecord(6, "");
    auto silent = storedRecord(5, {});
    auto newest = storedRecord(4, "4"), middle = storedRecord(3, "3"), oldest = storedRecord(1, "1");
    writeStore({ empty, silent, newest, middle, middle, oldest });
    host();

    auto messages = [](const std::optional<BulletinSet>& bulletins) {
        std::vector<std::string> result;
        for (const auto& bulletin : bulletins.value_or(BulletinSet {}))
            result.push_back(bulletin.message.value_or("(none)"));
        return result;
    };
    struct Case {
        BulletinRequestParameters parameters;
        std::vector<std::string> expected;
    };
    for (const auto& [parameters, expected] : std::initializer_list<Case> {
             { {}, { "4", "3", "1" } },
             { { .maximumCount = 2 }, { "4", "3" } },
             { { .maximumCount = 1, .sinceDate = Date(2) }, { "4" } },
             { { .sinceDate = Date(2) }, { "4", "3" } },
             { { .sinceDate = Date(3) }, { "4", "3" } },
             { { .sinceDate = Date(100) }, {} },
         }) {
        EXPECT_EQ(messages(service.requestBulletins(app, parameters)), expected) << parameters.description();
    }
    EXPECT_EQ(
        service.requestBulletins(app, { .publisherDestination = BulletinDestinations::Relay }), std::nullopt);
    EXPECT_EQ(service.requestBulletins(app, { .publisherDestination = BulletinDestinations::Mirror }),
        std::nullopt);
    auto latest = provider->_latestBulletinInSet(*service.requestBulletins(app, {}));
    ASSERT_TRUE(latest);
    EXPECT_EQ(latest->message, "4");
    EXPECT_FALSE(provider->_latestBulletinInSet({}));
}

TEST_F(ProviderTest, DatedClearedInfoFromAnOlderReleaseClearsOlderRecords)
{
    auto a = storedRecord(1, "a"), b = storedRecord(2, "b"), c = storedRecord(3, "c");
    writeStore({ c, b, a });
    host();
    service.setClearedInfo(Date(2), app);
    auto answer = service.requestBulletins(app, {});
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->size(), 1u);
    EXPECT_EQ((*answer)[0].message, "c");
    EXPECT_EQ(stored().size(), 1u);
    EXPECT_TRUE(service.clearedInfo(app).isNull());
    device.waitUntilIdle();
    // Already cleared on the service's side, so not withdrawn again.
    EXPECT_THAT(withdrawn(), IsEmpty());
}

TEST_F(ProviderTest, ClearAllEmptiesTheStoreAndAnswersTheBulletins)
{
    writeStore({ storedRecord(3, "c"), storedRecord(2, {}), storedRecord(1, "a") });
    host();
    auto cleared = service.clearAllBulletins(app, 0);
    EXPECT_TRUE(cleared.clearedInfo.isNull());
    ASSERT_EQ(cleared.clearedBulletins.size(), 2u);
    EXPECT_THAT(stored(), IsEmpty());
    device.waitUntilIdle();
    EXPECT_THAT(service.events(app), IsEmpty());

    // Nothing old comes back as new.
    device.advance(10);
    KTNotificationStore::sharedInstance()->saveRemoteNotificationWithTitle(
        {}, "new", {}, {}, {}, {}, {}, {}, app);
    device.waitUntilIdle();
    EXPECT_EQ(added().size(), 1u);
    EXPECT_THAT(withdrawn(), IsEmpty());
}

TEST_F(ProviderTest, ClearSomeMatchesTitleMessageAndDate)
{
    auto untitled = storedRecord(1, "same");
    auto titled = with(storedRecord(1, "same"), { { KTNotificationStoreTitleKey, "T" } });
    auto silent = storedRecord(2, {});
    auto otherDate = storedRecord(3, "same");
    writeStore({ otherDate, silent, titled, untitled });
    host();

    BulletinRequest noTitle;
    noTitle.date = Date(1);
    noTitle.message = "same";
    // An empty title is a title: it matches neither the untitled record nor "T".
    BulletinRequest emptyTitle = noTitle;
    emptyTitle.title = "";
    service.clearBulletins(app, { emptyTitle });
    EXPECT_EQ(stored().size(), 4u);

    BulletinRequest noMessage;
    noMessage.date = Date(2);
    service.clearBulletins(app, { noTitle, noMessage });
    EXPECT_THAT(stored(), ElementsAre(Value(otherDate), Value(titled)));
    EXPECT_TRUE(service.clearedInfo(app).isNull());
    device.waitUntilIdle();
    EXPECT_THAT(withdrawn(), IsEmpty());
}

// Settings

TEST_F(ProviderTest, SectionSettingsChangesAreAnnounced)
{
    host();
    auto info = service.sectionInfo(app);
    ASSERT_TRUE(info);
    EXPECT_FALSE(info->allowsNotifications);
    EXPECT_EQ(info->pushSettings, 0u);

    std::vector<Value> announced;
    std::mutex lock;
    device.platform().notificationCenter->addObserver(this, KTNotificationSettingsDidChangeNotification,
        provider.get(), [&](const Notification& notification) {
            std::lock_guard guard(lock);
            announced.push_back(notification.userInfo);
        });

    struct Case {
        bool allows;
        uint64_t pushSettings;
        int64_t alertType;
        bool lockScreen;
        bool centre;
        bool enabled;
    };
    std::vector<Case> cases {
        { false, 63, 1, true, true, false },
        { true, 7 + 8, 0, false, false, true },
        { true, 7 + 16, 0, false, false, true },
        { true, 7 + 32, 1, false, false, true },
        { true, 7 + 32, 0, false, false, false },
        { true, 7, 0, false, true, true },
        { true, 7, 0, true, false, true },
        { true, 7, 1, false, false, false },
    };
    for (const auto& c : cases) {
        SectionInfo changed = *info;
        changed.allowsNotifications = c.allows;
        changed.pushSettings = c.pushSettings;
        changed.alertType = c.alertType;
        changed.showsInLockScreen = c.lockScreen;
        changed.showsInNotificationCentre = c.centre;
        service.setSectionInfo(changed);
    }
    device.platform().notificationCenter->removeObserver(this);
    ASSERT_EQ(announced.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(announced[i][KTNotificationBundleIdentifierKey], Value(app));
        EXPECT_EQ(announced[i][KTNotificationEnabledKey], Value(cases[i].enabled)) << "case " << i;
    }
}

TEST_F(ProviderTest, ConcurrentSavesAndRequestsPresentEachRecordOnce)
{
    host();
    auto save = [](const std::string& prefix) {
        for (int i = 0; i < 20; ++i)
            KTNotificationStore::sharedInstance()->saveRemoteNotificationWithTitle(
                {}, prefix + std::to_string(i), {}, {}, {}, {}, {}, {}, app);
    };
    std::thread first(save, "first "), second(save, "second ");
    for (int i = 0; i < 10; ++i)
        service.requestBulletins(app, { .maximumCount = 5 });
    first.join();
    second.join();
    device.waitUntilIdle();
    auto presented = added();
    std::sort(presented.begin(), presented.end());
    EXPECT_EQ(std::adjacent_find(presented.begin(), presented.end()), presented.end());
    EXPECT_EQ(presented.size(), 40u);
    EXPECT_THAT(withdrawn(), IsEmpty());
}

TEST_F(ProviderTest, LoadIsLogged)
{
    host();
    EXPECT_TRUE(device.systemLog().contains("dataProviderDidLoad: com.example.app"));
}

TEST(ProviderQueueDeathTest, BulletinServiceCallsOffTheQueueAbort)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    SimulatedDevice device;
    auto queue = WorkQueue::create("com.tamber.KTDefaultDataProviderFactory");
    auto provider = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
    EXPECT_DEATH(provider->bulletinsWithRequestParameters({}, {}),
        "expected to run on queue 'com.tamber.KTDefaultDataProviderFactory'");
    // The store calls from its own side; on the provider's queue it is a mistake.
    EXPECT_DEATH(queue->sync([&] { provider->pushStoreNotificationsDidChange(); }),
        "expected not to run on queue 'com.tamber.KTDefaultDataProviderFactory'");
    provider->invalidate();
}

} // namespace
