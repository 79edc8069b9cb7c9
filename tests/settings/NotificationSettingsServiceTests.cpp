#include "settings/SettingsFixture.h"

#include "core/KTSectionInfoAdditions.h"
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

TEST(PushSettingsRegistration, KeepsTheUsersChoiceForKnownTypes)
{
    struct {
        const char* name;
        uint64_t pushSettings, types, expected;
    } cases[] = {
        { "FirstRegistrationEnablesAll", 0, all, all | enabled(all) },
        { "AlertsOnlyStaysAlertsOnly", all | enabled(alert), all, all | enabled(alert) },
        { "FewerTypesRemoveNothing", all | enabled(alert), sound, all | enabled(alert) },
        { "NewTypesStartEnabled", badge | enabled(badge), sound | alert, all | enabled(all) },
        { "SwitchedOffStaysOff", badge | sound | enabled(badge), sound, badge | sound | enabled(badge) },
        { "UnknownBitsAreDropped", 0, 8 | 64 | badge, badge | enabled(badge) },
        { "NothingRegisteredKeepsNothing", 0, 0, 0 },
    };
    for (const auto& c : cases) {
        SectionInfo info { .sectionID = app, .allowsNotifications = false, .pushSettings = c.pushSettings };
        auto updated = kt_sectionInfoWithNotificationTypes(info, c.types);
        info.pushSettings = c.expected;
        EXPECT_EQ(updated, info) << c.name << ": " << updated.description();
    }
}

// What reaches the user from a section's settings.
TEST(SectionEffect, EffectiveTypesAndEnabled)
{
    constexpr auto none = SectionInfo::AlertTypeNone;
    struct {
        const char* name;
        bool allows;
        uint64_t pushSettings;
        int64_t alertType;
        bool lockScreen, notificationCentre;
        uint64_t effectiveTypes;
        bool isEnabled;
    } cases[] = {
        { "SwitchedOff", false, all | enabled(all), SectionInfo::AlertTypeBanner, true, true, 0, false },
        { "AllOn", true, all | enabled(all), SectionInfo::AlertTypeModal, false, false, all, true },
        { "AlertWithoutStyleIsNoAlert", true, all | enabled(alert), none, false, false, 0, false },
        { "BadgeAndSound", true, all | enabled(badge | sound), none, false, false, badge | sound, true },
        { "NotificationCentreAlone", true, all, none, false, true, 0, true },
        { "LockScreenAlone", true, all, none, true, false, 0, true },
    };
    for (const auto& c : cases) {
        SectionInfo info { "", 0, c.allows, c.pushSettings, c.alertType, c.lockScreen, c.notificationCentre };
        EXPECT_EQ(kt_effectiveNotificationTypes(info), c.effectiveTypes) << c.name;
        EXPECT_EQ(kt_isEnabled(info), c.isEnabled) << c.name;
    }
}

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
    ASSERT_EQ(answers().size(), 1u);
    auto answered = answers()[0];
    ASSERT_TRUE(answered);
    EXPECT_TRUE(answered->isEqual(*NotificationSettings::settingsForTypes(all, { chat })));

    // Read back: the types in effect, with the categories stored.
    auto info = section(app);
    info.alertType = SectionInfo::AlertTypeNone;
    bulletins().setSectionInfo(info);
    std::shared_ptr<NotificationSettings> read;
    service()->notificationSettingsForBundleIdentifier(app, [&](auto settings) { read = settings; });
    device.waitUntilIdle();
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->isEqual(*NotificationSettings::settingsForTypes(badge | sound, { chat })));

    // Registered now: the next registration changes the types without asking.
    registerSettings(app, badge);
    EXPECT_EQ(alertsShown(), 1u);
    ASSERT_EQ(answers().size(), 2u);
    // Registering fewer types keeps the others; the new categories replace the old.
    EXPECT_TRUE(answers()[1]->isEqual(*NotificationSettings::settingsForTypes(badge | sound, {})));
    EXPECT_EQ(service()->notificationTypesForBundleIdentifier(app), badge | sound);
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
        EXPECT_EQ(answers()[0]->types(), c.allows ? all : 0);
    }

    // Refused or not, the application is not asked again.
    registerTypes(app, all);
    EXPECT_EQ(alertsShown(), 1u);
}

const AuthorizationCase authorizationCases[] = {
    { "SettingsAllowed", false, SystemAlertDefaultResponse, true, all | enabled(all) },
    { "SettingsDenied", false, SystemAlertAlternateResponse, false, all | enabled(all) },
    { "TypesAllowed", true, SystemAlertDefaultResponse, true, all | enabled(all) },
    // Refused bare types are recorded as a badge alone, unlike refused settings.
    { "TypesDenied", true, SystemAlertAlternateResponse, false, badge | enabled(badge) },
    { "TypesDismissed", true, SystemAlertCancelResponse, false, badge | enabled(badge) },
};

INSTANTIATE_TEST_SUITE_P(Cases, Authorization, ::testing::ValuesIn(authorizationCases),
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

TEST_F(SettingsService, AUsersSwitchSurvivesRegisteringAgainAndIsAnnounced)
{
    userAnswers(SystemAlertDefaultResponse);
    registerSettings(app, all);
    std::vector<Value> announced;
    std::mutex lock;
    auto center = device.platform().notificationCenter;
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
    center->removeObserver(this);
    std::lock_guard guard(lock);
    ASSERT_FALSE(announced.empty());
    EXPECT_EQ(announced[0],
        Value(Value::Dictionary {
            { KTNotificationBundleIdentifierKey, app }, { KTNotificationEnabledKey, true } }));
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
