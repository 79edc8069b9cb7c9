#include "settings/SettingsFixture.h"

#include "core/KTSectionInfoAdditions.h"
#include "platform/Platform.h"
#include "platform/events/NotificationCenter.h"

#include <tessel/Tessel.h>

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr uint64_t badge = NotificationSettings::TypeBadge;
constexpr uint64_t sound = NotificationSettings::TypeSound;
constexpr uint64_t alert = NotificationSettings::TypeAlert;
constexpr uint64_t all = badge | sound | alert;
constexpr uint64_t enabled(uint64_t types) { return types << 3; }

// Registering types against the push settings a section already has.
struct RegisterCase {
    const char* name;
    uint64_t pushSettings;
    uint64_t types;
    uint64_t expected;
};

class PushSettingsRegistration : public ::testing::TestWithParam<RegisterCase> { };

TEST_P(PushSettingsRegistration, KeepsTheUsersChoiceForKnownTypes)
{
    const auto& c = GetParam();
    SectionInfo info;
    info.sectionID = app;
    info.pushSettings = c.pushSettings;
    info.allowsNotifications = false;
    auto updated = kt_sectionInfoWithNotificationTypes(info, c.types);
    EXPECT_EQ(updated.pushSettings, c.expected);
    SectionInfo onlyPushSettingsChange = info;
    onlyPushSettingsChange.pushSettings = c.expected;
    EXPECT_EQ(updated, onlyPushSettingsChange);
    EXPECT_EQ(KTSupportedTypesForPushSettings(updated.pushSettings), c.expected & 7);
    EXPECT_EQ(KTEnabledTypesForPushSettings(updated.pushSettings), c.expected >> 3);
}

INSTANTIATE_TEST_SUITE_P(Cases, PushSettingsRegistration,
    ::testing::Values(RegisterCase { "FirstRegistrationEnablesAll", 0, all, all | enabled(all) },
        RegisterCase { "AlertsOnlyStaysAlertsOnly", all | enabled(alert), all, all | enabled(alert) },
        RegisterCase { "FewerTypesRemoveNothing", all | enabled(alert), sound, all | enabled(alert) },
        RegisterCase { "NewTypesStartEnabled", badge | enabled(badge), sound | alert, all | enabled(all) },
        RegisterCase {
            "SwitchedOffStaysOff", badge | sound | enabled(badge), sound, badge | sound | enabled(badge) },
        RegisterCase { "UnknownBitsAreDropped", 0, 8 | 64 | badge, badge | enabled(badge) },
        RegisterCase { "NothingRegisteredKeepsNothing", 0, 0, 0 }),
    [](const auto& info) { return std::string(info.param.name); });

// What reaches the user from a section's settings.
struct EffectCase {
    const char* name;
    bool allows;
    uint64_t pushSettings;
    int64_t alertType;
    bool lockScreen;
    bool notificationCentre;
    uint64_t effectiveTypes;
    bool isEnabled;
};

class SectionEffect : public ::testing::TestWithParam<EffectCase> { };

TEST_P(SectionEffect, EffectiveTypesAndEnabled)
{
    const auto& c = GetParam();
    SectionInfo info;
    info.allowsNotifications = c.allows;
    info.pushSettings = c.pushSettings;
    info.alertType = c.alertType;
    info.showsInLockScreen = c.lockScreen;
    info.showsInNotificationCentre = c.notificationCentre;
    EXPECT_EQ(kt_effectiveNotificationTypes(info), c.effectiveTypes);
    EXPECT_EQ(kt_isEnabled(info), c.isEnabled);
}

INSTANTIATE_TEST_SUITE_P(Cases, SectionEffect,
    ::testing::Values(EffectCase { "SwitchedOffShowsNothing", false, all | enabled(all),
                          SectionInfo::AlertTypeBanner, true, true, 0, false },
        EffectCase {
            "AllOn", true, all | enabled(all), SectionInfo::AlertTypeModal, false, false, all, true },
        EffectCase { "AlertWithoutStyleIsNoAlert", true, all | enabled(alert), SectionInfo::AlertTypeNone,
            false, false, 0, false },
        EffectCase { "BadgeAndSoundWithoutStyle", true, all | enabled(badge | sound),
            SectionInfo::AlertTypeNone, false, false, badge | sound, true },
        EffectCase { "NotificationCentreAlone", true, all, SectionInfo::AlertTypeNone, false, true, 0, true },
        EffectCase { "LockScreenAlone", true, all, SectionInfo::AlertTypeNone, true, false, 0, true }),
    [](const auto& info) { return std::string(info.param.name); });

using SettingsService = SettingsFixture;

TEST_F(SettingsService, FirstRegistrationAsksOnceAndEnablesTheSection)
{
    auto reply = std::make_shared<NotificationAction>("reply", "Reply");
    auto chat = std::make_shared<NotificationCategory>("chat");
    chat->setActions({ reply }, NotificationAction::ContextDefault);
    registerSettings(app, all, { chat });
    ASSERT_EQ(alertsShown(), 1u);
    EXPECT_TRUE(answers().empty()) << "nothing is answered before the user";

    answerAlert(0, SystemAlertDefaultResponse);
    auto info = section(app);
    EXPECT_TRUE(info.allowsNotifications);
    EXPECT_EQ(info.pushSettings, all | enabled(all));
    ASSERT_EQ(answers().size(), 1u);
    auto answered = answers()[0].settings;
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->types(), all);
    ASSERT_EQ(answered->categories().size(), 1u);
    EXPECT_EQ(answered->categories()[0]->identifier(), "chat");

    // Registered now: the next registration changes the types without asking.
    registerSettings(app, badge);
    EXPECT_EQ(alertsShown(), 1u);
    ASSERT_EQ(answers().size(), 2u);
    EXPECT_EQ(answers()[1].settings->types(), all);
    EXPECT_TRUE(answers()[1].settings->categories().empty())
        << "the new registration's categories replace the old";
    EXPECT_EQ(service()->notificationTypesForBundleIdentifier(app), all);
}

// The two ways to register, against each answer the user can give.
struct AuthorizationCase {
    const char* name;
    bool bareTypes;
    int64_t response;
    bool allows;
    uint64_t pushSettings;
};

class Authorization : public SettingsFixture, public ::testing::WithParamInterface<AuthorizationCase> { };

TEST_P(Authorization, RecordsTheAnswer)
{
    const auto& c = GetParam();
    userAnswers(c.response);
    if (c.bareTypes)
        registerTypes(app, all);
    else
        registerSettings(app, all);
    EXPECT_EQ(alertsShown(), 1u);
    auto info = section(app);
    EXPECT_EQ(info.allowsNotifications, c.allows);
    EXPECT_EQ(info.pushSettings, c.pushSettings);
    EXPECT_EQ(service()->notificationTypesForBundleIdentifier(app), c.allows ? all : 0);
    if (!c.bareTypes) {
        ASSERT_EQ(answers().size(), 1u) << "a refused application is answered too";
        EXPECT_EQ(answers()[0].settings->types(), c.allows ? all : 0);
    }

    // Refused or not, the application is not asked again.
    registerTypes(app, all);
    EXPECT_EQ(alertsShown(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Cases, Authorization,
    ::testing::Values(
        AuthorizationCase { "SettingsAllowed", false, SystemAlertDefaultResponse, true, all | enabled(all) },
        AuthorizationCase {
            "SettingsDenied", false, SystemAlertAlternateResponse, false, all | enabled(all) },
        AuthorizationCase { "TypesAllowed", true, SystemAlertDefaultResponse, true, all | enabled(all) },
        // Refused bare types are recorded as a badge alone, unlike refused settings.
        AuthorizationCase {
            "TypesDenied", true, SystemAlertAlternateResponse, false, badge | enabled(badge) },
        AuthorizationCase {
            "TypesDismissed", true, SystemAlertCancelResponse, false, badge | enabled(badge) }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(SettingsService, RacingRegistrationsShareOneAlert)
{
    service()->registerNotificationSettings(NotificationSettings::settingsForTypes(badge, {}), app, nullptr);
    registerSettings(app, sound);
    registerTypes(app, alert);
    ASSERT_EQ(alertsShown(), 1u);

    answerAlert(0, SystemAlertDefaultResponse);
    EXPECT_EQ(section(app).pushSettings, all | enabled(all));
    EXPECT_EQ(answers().size(), 1u);
    EXPECT_TRUE(section(app).allowsNotifications);
}

TEST_F(SettingsService, AUsersSwitchSurvivesRegisteringAgain)
{
    userAnswers(SystemAlertDefaultResponse);
    registerSettings(app, all);
    std::vector<Value> announced;
    std::mutex lock;
    auto center = Platform::current().notificationCenter;
    center->addObserver(
        this, KTNotificationSettingsDidChangeNotification, nullptr, [&](const Notification& note) {
            std::lock_guard guard(lock);
            announced.push_back(note.userInfo);
        });

    auto info = section(app);
    info.pushSettings &= ~enabled(sound);
    bulletins().setSectionInfo(info);
    registerSettings(app, all);
    registerTypes(app, sound);

    EXPECT_EQ(section(app).pushSettings, all | enabled(badge | alert));
    EXPECT_EQ(service()->notificationTypesForBundleIdentifier(app), badge | alert);
    std::lock_guard guard(lock);
    ASSERT_FALSE(announced.empty());
    EXPECT_EQ(announced[0].dictionaryValue().at(KTNotificationBundleIdentifierKey), Value(app));
    EXPECT_EQ(announced[0].dictionaryValue().at(KTNotificationEnabledKey), Value(true));
    center->removeObserver(this);
}

TEST_F(SettingsService, ApplicationsWithTheirOwnProviderAreNeverAnswered)
{
    registerSettings(customProviderApp, all);
    registerTypes(customProviderApp, all);
    EXPECT_TRUE(answers().empty());
    EXPECT_EQ(alertsShown(), 0u) << "a system application is allowed without asking";
    EXPECT_FALSE(bulletins().sectionInfo(customProviderApp));
    EXPECT_EQ(
        device.systemLog().count("Warning: Do not register notification settings for an app that is using a "
                                 "custom data provider: com.tamber.clock"),
        2u);
}

TEST_F(SettingsService, AnApplicationUninstalledBeforeTheAnswerGetsNothing)
{
    registerSettings(app, all);
    ASSERT_TRUE(workspace().uninstall(app));
    device.waitUntilIdle();
    answerAlert(0, SystemAlertDefaultResponse);
    EXPECT_TRUE(answers().empty());
    EXPECT_FALSE(bulletins().sectionInfo(app));
    EXPECT_FALSE(bulletins().hostsSection(app));
}

TEST_F(SettingsService, EnabledSetHoldsOnlyEnabledApplications)
{
    userAnswers(SystemAlertDefaultResponse);
    registerSettings(app, all);
    userAnswers(SystemAlertAlternateResponse);
    registerSettings(otherApp, all);

    EXPECT_EQ(service()->bundleIdentifiersWithEnabledNotifications({ app, otherApp, "com.example.unknown" }),
        std::set<std::string> { app });
    EXPECT_TRUE(service()->bundleIdentifiersWithEnabledNotifications({}).empty());
    std::set<std::string> asynchronous { "not answered" };
    service()->bundleIdentifiersWithEnabledNotifications(
        {}, [&](std::set<std::string> result) { asynchronous = result; });
    device.waitUntilIdle();
    EXPECT_TRUE(asynchronous.empty());
}

TEST_F(SettingsService, SettingsReadBackTypesInEffectAndStoredCategories)
{
    userAnswers(SystemAlertDefaultResponse);
    auto chat = std::make_shared<NotificationCategory>("chat");
    chat->setActions(
        { std::make_shared<NotificationAction>("reply", "Reply") }, NotificationAction::ContextDefault);
    registerSettings(app, all, { chat });
    auto info = section(app);
    info.alertType = SectionInfo::AlertTypeNone;
    bulletins().setSectionInfo(info);

    std::shared_ptr<NotificationSettings> read;
    service()->notificationSettingsForBundleIdentifier(app, [&](auto settings) { read = settings; });
    device.waitUntilIdle();
    ASSERT_TRUE(read);
    EXPECT_EQ(read->types(), badge | sound);
    ASSERT_EQ(read->categories().size(), 1u);
    EXPECT_EQ(read->categories()[0]->identifier(), "chat");
}

TEST_F(SettingsService, TheSystemSettingABadgeRegistersTheBadge)
{
    userAnswers(SystemAlertDefaultResponse);
    KTSystemDidSetBadgeForBundleIdentifier(app);
    device.waitUntilIdle();
    EXPECT_EQ(alertsShown(), 1u);
    EXPECT_EQ(section(app).pushSettings, badge | enabled(badge));
    EXPECT_TRUE(section(app).allowsNotifications);
}

using SettingsServiceDeathTest = SettingsFixture;

TEST_F(SettingsServiceDeathTest, BlockingQueriesFromTheServiceQueuesAbort)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto factoryQueue = KTDefaultDataProviderFactory::sharedInstance()->queue();
    EXPECT_DEATH(service()->queue()->sync([&] { service()->notificationTypesForBundleIdentifier(app); }),
        "expected not to run on queue 'com.tamber.KTNotificationSettingsService'");
    EXPECT_DEATH(factoryQueue->sync([&] { service()->bundleIdentifiersWithEnabledNotifications({ app }); }),
        "expected not to run on queue 'com.tamber.KTDefaultDataProviderFactory'");
}

} // namespace
