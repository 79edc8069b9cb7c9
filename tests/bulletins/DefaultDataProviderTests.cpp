#include "bulletins/BulletinTestSupport.h"

#include "platform/applications/ApplicationDataStore.h"
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

namespace {

Value::Dictionary with(Value::Dictionary record, const Value::Dictionary& values)
{
    for (const auto& [key, value] : values)
        record.insert_or_assign(key, value);
    return record;
}

// Records to bulletins

const Value::Dictionary remoteContext { { BulletinContextNotificationTypeKey,
    kKTNotificationStoreNotificationTypeRemote } };

struct RecordCase {
    const char* name;
    // Added to a remote record with the message "Hello".
    Value::Dictionary fields;
    std::optional<BulletinSound> sound = std::nullopt;
    Value::Dictionary context = remoteContext;
    std::optional<std::string> message = "Hello";
    std::optional<std::string> actionText = std::nullopt;
    int64_t attachment = BulletinRequest::AttachmentTypeNone;
};

TEST_F(ProviderTest, RecordsBecomeBulletins)
{
    const Value::Dictionary userInfo { { "k", 1 } };
    const char *sound = KTNotificationStoreSoundKey, *ringtone = KTNotificationStoreSoundIsRingtoneKey,
               *sentinel = kKTNotificationStoreSoundDefault;
    const RecordCase cases[] = {
        { "DefaultSoundSentinel", { { sound, sentinel } }, BulletinSound::systemSound(1015, 1) },
        { "RingtoneFlagTakesTheSentinelAsAName", { { sound, sentinel }, { ringtone, true } },
            BulletinSound::ringtone(sentinel, {}, false) },
        { "RingtoneFlagOffIsASoundPath", { { sound, "/sounds/chime.caf" }, { ringtone, false } },
            BulletinSound::systemSoundPath("/sounds/chime.caf", 1) },
        { "MessageAndSoundOfAnotherTypeAreLeftOut", { { KTNotificationStoreMessageKey, 42 }, { sound, 7 } },
            {}, remoteContext, {} },
        { "ActionTextTitlesTheDefaultActionAndUnlockLabel", { { KTNotificationStoreActionTextKey, "Reply" } },
            {}, remoteContext, "Hello", "Reply" },
        { "RemotePayloadLaunchImageAndImage",
            { { KTNotificationStoreUserInfoKey, userInfo }, { KTNotificationStoreLaunchImageKey, "Launch" },
                { KTNotificationStoreImageURLKey, "file:///tmp/a.png" } },
            {},
            with(remoteContext,
                { { BulletinContextRemoteNotificationKey, userInfo },
                    { BulletinContextLaunchImageKey, "Launch" } }),
            "Hello", {}, BulletinRequest::AttachmentTypeImage },
        { "LocalRecordKeepsItsDetailsButNotItsUserInfo",
            { { KTNotificationStoreNotificationTypeKey, kKTNotificationStoreNotificationTypeLocal },
                { KTNotificationStoreUserInfoKey, userInfo },
                { KTNotificationStoreLocalNotificationDataKey, Value::data("abc", 3) } },
            {},
            { { BulletinContextNotificationTypeKey, kKTNotificationStoreNotificationTypeLocal },
                { BulletinContextLocalNotificationKey, Value::data("abc", 3) } } },
    };
    host();
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        auto record = with(storedRecord(10), expected.fields);
        auto bulletin = provider->_bulletinForNotification(record);
        ASSERT_TRUE(bulletin);
        EXPECT_EQ(bulletin->message, expected.message);
        EXPECT_EQ(bulletin->sound, expected.sound);
        EXPECT_EQ(Value(bulletin->context), Value(expected.context));
        EXPECT_EQ(bulletin->primaryAttachmentType, expected.attachment);
        ASSERT_TRUE(bulletin->defaultAction);
        EXPECT_EQ(bulletin->defaultAction->launchBundleID, app);
        EXPECT_EQ(bulletin->defaultAction->appearance,
            expected.actionText ? std::optional(ActionAppearance { *expected.actionText }) : std::nullopt);
        EXPECT_EQ(bulletin->unlockActionLabel, expected.actionText);
        // What the service hands back later names the record the way the store does.
        EXPECT_EQ(bulletin->publisherBulletinID, identifierOf(record));
        EXPECT_EQ(bulletin->recordID, identifierOf(record));
        EXPECT_EQ(bulletin->date, Date(10));
        EXPECT_EQ(bulletin->section, app);
    }
}

// Presenting changes

const Value a(storedRecord(1, "a")), b(storedRecord(2, "b")), c(storedRecord(3, "c")),
    d(storedRecord(4, "d")), e(storedRecord(5, "e"));

std::vector<std::string> identifiersOf(const Value::Array& records)
{
    std::vector<std::string> identifiers;
    for (const auto& record : records)
        identifiers.push_back(identifierOf(record));
    return identifiers;
}

TEST_F(ProviderTest, StoreChangesPresentOnlyTheDifference)
{
    // The store's lists (newest first) one after another, and what each change presents and withdraws.
    struct Step {
        Value::Array store, added, withdrawn;
    };
    struct {
        const char* name;
        std::vector<Step> steps;
    } cases[] = {
        { "OldestFirstAndWithdrawsWhatLeft",
            { { { b, a }, {}, {} }, { { c, b }, { c }, { a } }, { { e, d, c, b }, { d, e }, {} } } },
        // A second record that names itself the same way is a new one.
        { "DuplicatesCountOneByOne", { { { a }, {}, {} }, { { a, a }, { a }, {} }, { { a }, {}, { a } } } },
        { "EntriesThatCannotBeBulletinsAreSkipped",
            { { {}, {}, {} },
                { { Value("junk"), Value::Dictionary { { KTNotificationStoreMessageKey, "undated" } },
                      with(storedRecord(3), { { KTNotificationStoreCreationDateKey, 12 } }), Value(7), e },
                    { e }, {} } } },
    };
    host();
    for (const auto& [name, steps] : cases) {
        for (size_t i = 0; i < steps.size(); ++i) {
            SCOPED_TRACE(std::string(name) + ", step " + std::to_string(i));
            writeStore(steps[i].store);
            announceChange();
            // The first step only sets the scene.
            if (i > 0) {
                EXPECT_EQ(added(), identifiersOf(steps[i].added));
                EXPECT_EQ(withdrawn(), identifiersOf(steps[i].withdrawn));
            }
            service.clearEvents(app);
        }
    }
}

TEST_F(ProviderTest, MessagesInterruptSoundsGoToDestinationsAndSilentRecordsOnlyBadge)
{
    host();
    auto message = storedRecord(19, "after");
    auto soundOnly
        = with(storedRecord(20, {}), { { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault } });
    auto badgeOnly = with(storedRecord(21, {}), { { KTNotificationStoreBadgeNumberKey, 3 } });
    writeStore({ badgeOnly, soundOnly, message });
    announceChange();

    auto adds = events(Kind::Add);
    ASSERT_EQ(adds.size(), 2u);
    EXPECT_EQ(adds[0].bulletin->message, "after");
    EXPECT_EQ(adds[0].interrupt, true);
    EXPECT_FALSE(adds[0].destinations);
    EXPECT_EQ(adds[1].publisherBulletinID, identifierOf(soundOnly));
    EXPECT_EQ(adds[1].destinations, BulletinDestinations::Default);
    EXPECT_FALSE(adds[1].interrupt);
    EXPECT_EQ(device.systemService().badgeValue(app), Value(3));

    // Remembered, so neither is presented nor badged again.
    announceChange();
    EXPECT_EQ(events(Kind::Add).size(), 2u);
    EXPECT_EQ(device.systemService().badgeHistory().size(), 1u);
}

TEST_F(ProviderTest, AClearedStoreIsWithdrawnAndInvalidatedOrDestroyedProvidersHearNothing)
{
    writeStore({ b, a });
    host();
    KTNotificationStore::sharedInstance()->clearNotificationsForBundleID(app);
    device.waitUntilIdle();
    auto all = service.events(app);
    ASSERT_EQ(all.size(), 3u);
    EXPECT_THAT(withdrawn(), UnorderedElementsAre(identifierOf(a), identifierOf(b)));
    EXPECT_EQ(all.back().kind, Kind::Invalidate);

    service.clearEvents(app);
    provider->invalidate();
    EXPECT_FALSE(provider->proxy());
    save("late");
    EXPECT_THAT(service.events(app), IsEmpty());
    EXPECT_EQ(stored().size(), 1u);
    provider->uninstall();
    EXPECT_TRUE(KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app).isNull());

    // Destroyed without being invalidated first: the store lets go of it.
    host();
    std::weak_ptr<KTDefaultDataProvider> weak = provider;
    service.removeDataProviderWithSectionID(app);
    provider.reset();
    EXPECT_TRUE(weak.expired());
    save("later");
    EXPECT_THAT(service.events(app), IsEmpty());
}

// Actions

std::shared_ptr<NotificationCategory> categoryWithActions(
    const std::string& identifier, int defaultCount, int minimalCount)
{
    auto category = std::make_shared<NotificationCategory>(identifier);
    for (auto [prefix, count, context] : { std::tuple("d", defaultCount, NotificationAction::ContextDefault),
             std::tuple("m", minimalCount, NotificationAction::ContextMinimal) }) {
        NotificationActions actions;
        for (int i = 0; i < count; ++i)
            actions.push_back(std::make_shared<NotificationAction>(prefix + std::to_string(i), "Title"));
        category->setActions(actions, context);
    }
    return category;
}

TEST_F(ProviderTest, ActionsAreCutToWhatEachLayoutHasRoomFor)
{
    host();
    auto identifiers = [](const std::vector<BulletinAction>& actions) {
        std::vector<std::string> result;
        for (const auto& action : actions)
            result.push_back(action.identifier);
        return result;
    };
    struct {
        int defaultCount, minimalCount;
        std::vector<std::string> normal, compact;
    } cases[] = {
        // Without minimal actions the first default ones stand in.
        { 5, 0, { "d0", "d1", "d2", "d3" }, { "d0", "d1" } },
        { 1, 0, { "d0" }, { "d0" } },
        { 3, 3, { "d0", "d1", "d2" }, { "m0", "m1" } },
        { 0, 1, {}, { "m0" } },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.defaultCount << " default, " << c.minimalCount << " minimal");
        provider->setCategories({ categoryWithActions("other", 1, 1),
            categoryWithActions("reply", c.defaultCount, c.minimalCount) });
        auto bulletin = provider->_bulletinForNotification(
            with(storedRecord(1), { { KTNotificationStoreCategoryKey, "reply" } }));
        ASSERT_TRUE(bulletin);
        EXPECT_EQ(
            identifiers(bulletin->supplementaryActionsForLayout(BulletinRequest::LayoutNormal)), c.normal);
        EXPECT_EQ(
            identifiers(bulletin->supplementaryActionsForLayout(BulletinRequest::LayoutCompact)), c.compact);
    }
}

TEST_F(ProviderTest, CategoriesPersistAndTheirActionsAreConverted)
{
    host();
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
    auto mail = std::make_shared<NotificationCategory>("mail");
    mail->setActions({ archive, reply, odd }, NotificationAction::ContextDefault);
    provider->setCategories({ mail, mail });

    // Read back as the provider of the next start finds them.
    auto next = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
    ASSERT_EQ(next->categories().size(), 1u);
    auto bulletin = next->_bulletinForNotification(
        with(storedRecord(1), { { KTNotificationStoreCategoryKey, "mail" } }));
    next->invalidate();
    ASSERT_TRUE(bulletin);
    std::vector<BulletinAction> expected {
        { .identifier = "archive",
            .appearance = ActionAppearance { "Archive", ActionAppearance::StyleDestructive },
            .launchBundleID = app,
            .activationMode = BulletinAction::ActivationModeBackground,
            .authenticationRequired = true },
        { .identifier = "reply",
            .appearance = ActionAppearance { "Reply" },
            .launchBundleID = app,
            .behavior = BulletinAction::BehaviorTextInput,
            .behaviorParameters = { { "submit", "Send" } } },
        // Values the service does not know fall back to the plain ones.
        { .identifier = "odd", .appearance = ActionAppearance { "Odd" }, .launchBundleID = app },
    };
    EXPECT_TRUE(bulletin->supplementaryActionsForLayout(BulletinRequest::LayoutNormal) == expected)
        << bulletin->description();

    // Unreadable ones read as none.
    auto dataStore = ApplicationDataStore::storeForApplication(app);
    for (const Value& wrong : { Value(mail), Value(Value::Array { Value("mail") }),
             Value(Value::Array { Value(NotificationSettings::settingsForTypes(7, { mail })) }) }) {
        ASSERT_TRUE(dataStore->setArchivedObject(wrong, KTDefaultDataProvider::categoriesKey));
        next = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
        EXPECT_THAT(next->categories(), IsEmpty()) << wrong.description();
        next->invalidate();
    }
    ASSERT_TRUE(dataStore->setObject(Value::data("\x01\x02", 2), KTDefaultDataProvider::categoriesKey));
    next = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
    EXPECT_THAT(next->categories(), IsEmpty());
    next->invalidate();
    EXPECT_EQ(provider->categories().size(), 1u) << "the provider that wrote them keeps its own";
}

// Requests and clears

TEST_F(ProviderTest, RequestAnswers)
{
    auto newest = storedRecord(4, "4"), middle = storedRecord(3, "3"), oldest = storedRecord(1, "1");
    writeStore({ Value("junk"), Value::Dictionary { { KTNotificationStoreMessageKey, "undated" } },
        storedRecord(6, ""), storedRecord(5, {}), newest, middle, middle, oldest });
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
             { { .sinceDate = Date(3) }, { "4", "3" } },
             { { .sinceDate = Date(100) }, {} },
         }) {
        EXPECT_EQ(messages(service.requestBulletins(app, parameters)), expected) << parameters.description();
    }
    for (auto destination : { BulletinDestinations::Relay, BulletinDestinations::Mirror })
        EXPECT_EQ(service.requestBulletins(app, { .publisherDestination = destination }), std::nullopt);
    auto latest = provider->_latestBulletinInSet(*service.requestBulletins(app, {}));
    ASSERT_TRUE(latest);
    EXPECT_EQ(latest->message, "4");
    EXPECT_FALSE(provider->_latestBulletinInSet({}));
}

TEST_F(ProviderTest, ClearsRemoveTheMatchingRecordsWithoutWithdrawingThem)
{
    auto titled = with(storedRecord(1, "same"), { { KTNotificationStoreTitleKey, "T" } });
    auto otherDate = storedRecord(3, "same"), newest = storedRecord(4, "newest");
    writeStore({ newest, otherDate, storedRecord(2, {}), titled, storedRecord(1, "same") });
    host();

    // Some, by date, title and message; an empty title is a title and matches neither.
    service.clearBulletins(app, { { .date = Date(1), .message = "same", .title = "" } });
    EXPECT_EQ(stored().size(), 5u);
    service.clearBulletins(app, { { .date = Date(1), .message = "same" }, { .date = Date(2) } });
    EXPECT_THAT(stored(), ElementsAre(Value(newest), Value(otherDate), Value(titled)));

    // A dated cleared info from an older release clears everything up to its date.
    service.setClearedInfo(Date(3), app);
    auto answer = service.requestBulletins(app, {});
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->size(), 1u);
    EXPECT_EQ((*answer)[0].message, "newest");
    EXPECT_EQ(stored().size(), 1u);
    EXPECT_TRUE(service.clearedInfo(app).isNull());

    auto cleared = service.clearAllBulletins(app, 0);
    EXPECT_TRUE(cleared.clearedInfo.isNull());
    EXPECT_EQ(cleared.clearedBulletins.size(), 1u);
    EXPECT_THAT(stored(), IsEmpty());
    device.waitUntilIdle();
    // Already cleared on the service's side: nothing is withdrawn.
    EXPECT_THAT(service.events(app), IsEmpty());

    // Nothing old comes back as new.
    device.advance(10);
    save("new");
    EXPECT_EQ(added().size(), 1u);
    EXPECT_THAT(withdrawn(), IsEmpty());
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
