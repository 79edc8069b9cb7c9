#include "remote/RemoteServerFixture.h"

#include "platform/push/PushEnvironment.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedProcessManager.h"

using namespace tessel;
using namespace tessel::testing;

namespace {

using Topics = std::vector<std::string>;
using Move = SimulatedPushConnection::Move;

class PushTopics : public RemoteServerFixture { };

TEST_F(PushTopics, ForegroundAppsAreEnabledAndMoveBackWithoutARecalculation)
{
    startWithEnabledApp();
    EXPECT_TRUE(connection()->usesAppLaunchStats());
    ASSERT_EQ(connection()->opportunisticTopics(), Topics { app });
    auto settings = connection()->topicSettings();

    // Malformed state reports change nothing.
    for (auto info : { Value(Value::Dictionary { { ApplicationStateKey, ApplicationStateForeground } }),
             Value(Value::Dictionary { { ApplicationStateBundleIdentifierKey, 12 },
                 { ApplicationStateKey, ApplicationStateForeground } }),
             Value(Value::Dictionary {
                 { ApplicationStateBundleIdentifierKey, app }, { ApplicationStateKey, "8" } }),
             Value("not a dictionary") })
        device.applicationStates().reportStateChange(info);
    device.waitUntilIdle();
    EXPECT_TRUE(connection()->moves().empty());

    reportState(app, ApplicationStateForeground);
    EXPECT_EQ(connection()->enabledTopics(), Topics { app });
    EXPECT_TRUE(connection()->opportunisticTopics().empty());
    reportState(app, ApplicationStateForegroundObscured);
    reportState(app, ApplicationStateTerminated);
    EXPECT_EQ(connection()->opportunisticTopics(), Topics { app });
    EXPECT_EQ(connection()->moves(), (std::vector<Move> { { app, 1, 0 }, { app, 0, 1 } }));
    EXPECT_EQ(connection()->topicSettings(), settings);

    // A later full calculation agrees with what the moves did.
    reportState(app, ApplicationStateForeground);
    setNotificationsEnabled(otherApp, true);
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = otherApp }));
    device.waitUntilIdle();
    EXPECT_GT(connection()->topicSettings(), settings);
    EXPECT_EQ(connection()->enabledTopics(), Topics { app });
}

TEST_F(PushTopics, ADebuggedAppStaysImportantUntilBothEnd)
{
    startWithEnabledApp();
    auto process = device.processManager().launch(app);
    process->setBeingDebugged(true);
    device.waitUntilIdle();
    EXPECT_EQ(connection()->enabledTopics(), Topics { app });
    reportState(app, ApplicationStateForeground);
    reportState(app, ApplicationStateTerminated);
    EXPECT_EQ(connection()->enabledTopics(), Topics { app }) << "still being debugged";
    process->setBeingDebugged(false);
    device.waitUntilIdle();
    EXPECT_EQ(connection()->opportunisticTopics(), Topics { app });
    EXPECT_EQ(connection()->moves().size(), 2u);
}

// Only a gazette application killed by the user loses background delivery,
// until it comes to the foreground again.
TEST_F(PushTopics, AUserKillDisablesBackgroundDeliveryOfAGazetteApp)
{
    state->gazette.insert(app);
    start();
    for (auto bundleIdentifier : { app, otherApp }) {
        setNotificationsEnabled(bundleIdentifier, true);
        registerApp(bundleIdentifier);
    }
    reportState(app, ApplicationStateTerminated);
    EXPECT_FALSE(client(app)->backgroundDeliveryDisabled()) << "an ordinary exit";
    reportState(otherApp, ApplicationStateTerminated, ApplicationExitReasonUserKilled);
    EXPECT_FALSE(client(otherApp)->backgroundDeliveryDisabled()) << "not a gazette application";
    reportState(app, ApplicationStateTerminated, ApplicationExitReasonUserKilled);
    EXPECT_TRUE(client(app)->backgroundDeliveryDisabled());
    EXPECT_TRUE(KTRemoteNotificationClient::loadFromDataStore(app)->backgroundDeliveryDisabled());
    reportState(app, ApplicationStateForeground);
    EXPECT_FALSE(client(app)->backgroundDeliveryDisabled());
    EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore(app)->backgroundDeliveryDisabled());
}

TEST_F(PushTopics, AGazetteAppWithoutPushAsksForBackgroundDownloadsWhenItComesForward)
{
    state->gazette.insert(app);
    state->gazetteContent.insert(app);
    state->gazette.insert(otherApp);
    state->gazetteContent.insert(otherApp);
    start();
    setNotificationsEnabled(otherApp, true);
    registerApp(otherApp);
    reportState(app, ApplicationStateForeground);
    reportState(otherApp, ApplicationStateForeground);
    EXPECT_EQ(device.downloadManager().reevaluations(), (std::vector<std::vector<std::string>> { { app } }));
}

// Cloud database topics follow the entitlement: an array naming the service in any case.
struct CloudCase {
    const char* name;
    Value entitlement;
    bool extraTopic;
};

class CloudTopics : public RemoteServerFixture, public ::testing::WithParamInterface<CloudCase> { };

TEST_P(CloudTopics, ComeFromTheServicesEntitlement)
{
    auto& param = GetParam();
    Value::Dictionary entitlements;
    if (!param.entitlement.isNull())
        entitlements["com.tamber.developer.skyvault-services"] = param.entitlement;
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app, .entitlements = entitlements }));
    startWithEnabledApp();
    Topics expected { app };
    if (param.extraTopic)
        expected.push_back(std::string("com.tamber.skyvault-container.") + app);
    EXPECT_EQ(connection()->opportunisticTopics(), expected);
    reportState(app, ApplicationStateForeground);
    EXPECT_EQ(connection()->enabledTopics(), expected) << "every topic moves";
}

INSTANTIATE_TEST_SUITE_P(Cases, CloudTopics,
    ::testing::Values(
        CloudCase { "UpperCaseInArray", Value::Array { Value("other"), Value("DRIFTKEEP") }, true },
        CloudCase { "PlainString", "driftkeep", false }, CloudCase { "NoEntitlement", Value(), false },
        CloudCase { "LongerName", Value::Array { Value("driftkeeper") }, false },
        CloudCase { "NotStrings", Value::Array { Value(1), Value(Value::Dictionary {}) }, false }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PushTopics, EachEnvironmentListsOnlyItsInstalledUnrestrictedWantedApps)
{
    const std::string development = "com.example.dev";
    state->restricted.insert(otherApp);
    start();
    for (auto bundleIdentifier : { app, otherApp, "com.example.gone" }) {
        setNotificationsEnabled(bundleIdentifier, true);
        registerApp(bundleIdentifier);
    }
    setNotificationsEnabled(development, true);
    registerApp(development, PushEnvironmentDevelopment);
    state->uninstalled.insert("com.example.gone");
    server->invalidateTokenForRemoteNotificationsForBundleIdentifier("com.example.third");
    device.waitUntilIdle();
    EXPECT_EQ(connection()->opportunisticTopics(), Topics { app });
    EXPECT_TRUE(connection()->ignoredTopics().empty());
    EXPECT_EQ(connection(PushEnvironmentDevelopment)->opportunisticTopics(), Topics { development });

    // Moving one environment's app is sent to every connection; the other holds nothing to move.
    reportState(app, ApplicationStateForeground);
    EXPECT_EQ(connection(PushEnvironmentDevelopment)->moves(), (std::vector<Move> { { app, 1, 0 } }));
    EXPECT_EQ(connection(PushEnvironmentDevelopment)->enabledTopics(), Topics {});
}

TEST_F(PushTopics, NotificationSettingsChangesMoveAnAppBetweenIgnoredAndOpportunistic)
{
    start();
    registerApp(app);
    ASSERT_EQ(connection()->ignoredTopics(), Topics { app });
    EXPECT_TRUE(connection()->tokenRequests().empty());

    setNotificationsEnabled(app, true);
    EXPECT_EQ(connection()->opportunisticTopics(), Topics { app });
    EXPECT_EQ(connection()->tokenRequests().size(), 1u);
    EXPECT_TRUE(
        logged("user notifications became enabled for com.example.app, and it wants push, so we are now "
               "registering for push"));

    setNotificationsEnabled(app, false);
    EXPECT_EQ(connection()->ignoredTopics(), Topics { app });
    EXPECT_TRUE(
        logged("user notifications became disabled for com.example.app, and it wants push, so we are now "
               "calculating topics to update the ignore list"));
}

TEST_F(PushTopics, BackgroundRefreshChangesRegisterAppsThatSupportIt)
{
    state->backgroundRefresh.insert(app);
    setRefreshList(Value::Dictionary { { app, false } });
    start();
    registerApp(app);
    ASSERT_EQ(connection()->ignoredTopics(), Topics { app });

    // The preference changed elsewhere; the server is told.
    setRefreshList(Value::Dictionary { { app, true } });
    server->setAllowsBackgroundRefresh(true, app);
    device.waitUntilIdle();
    EXPECT_EQ(connection()->opportunisticTopics(), Topics { app });
    EXPECT_EQ(connection()->tokenRequests().size(), 2u) << "one for the record, one for the registration";
    EXPECT_EQ(device.downloadManager().reevaluations(), (std::vector<std::vector<std::string>> { { app } }));
    EXPECT_TRUE(
        logged("background app refresh became enabled for com.example.app, and it wants push, so we are "
               "now registering for push"));

    std::optional<Value::Dictionary> mapping;
    server->backgroundAppRefreshBundleIdentifierMappingWithResult(
        [&](Value::Dictionary answer) { mapping = answer; });
    device.waitUntilIdle();
    EXPECT_EQ(mapping, (Value::Dictionary { { app, true } }));

    setRefreshList(Value::Dictionary { { app, false } });
    server->setAllowsBackgroundRefresh(false, app);
    device.waitUntilIdle();
    EXPECT_EQ(connection()->ignoredTopics(), Topics { app });
    EXPECT_TRUE(
        logged("background app refresh became disabled for com.example.app, and it wants push, so we are "
               "now calculating topics to update the ignore list"));
}

// Content pushes to a Gazette application need it to be one, refresh allowed, and automatic updates allowed.
TEST_F(PushTopics, GazettePushNeedsRefreshAndAutomaticUpdates)
{
    struct Case {
        bool gazette;
        bool refreshAllowed;
        bool updatesAllowed;
        bool enabled;
    };
    const Case cases[] = {
        { true, true, true, true },
        { false, true, true, false },
        { true, false, true, false },
        { true, true, false, false },
    };
    start();
    for (auto& one : cases) {
        state->gazette.clear();
        if (one.gazette)
            state->gazette.insert(app);
        setRefreshList(Value::Dictionary { { app, one.refreshAllowed } });
        device.profileConnection().setAutomaticAppUpdatesAllowed(one.updatesAllowed);
        EXPECT_EQ(
            server->queue()->sync([&] { return server->_queue_isGazettePushEnabledForApplication(app); }),
            one.enabled)
            << one.gazette << one.refreshAllowed << one.updatesAllowed;
    }
}

TEST_F(PushTopics, NothingReachesAServerThatIsGone)
{
    startWithEnabledApp();
    auto production = connection();
    auto process = device.processManager().launch(app);
    std::weak_ptr<KTRemoteNotificationServer> weakServer = server;
    server.reset();
    device.waitUntilIdle();
    ASSERT_TRUE(weakServer.expired());

    reportState(app, ApplicationStateForeground);
    setNotificationsEnabled(app, false);
    process->setBeingDebugged(true);
    production->sendToken(Bytes { 1 }, std::string(app), "id");
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = otherApp }));
    device.waitUntilIdle();
    EXPECT_TRUE(recorder->tokens().empty());
    EXPECT_TRUE(production->moves().empty());
}

} // namespace
