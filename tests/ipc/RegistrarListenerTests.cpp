// The registrar service as applications reach it: who may ask for what, and
// where tokens go.
#include "ipc/KTNotificationRegistrarConnectionListener.h"
#include "platform/foundation/ErrorDomains.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/records/NotificationSettings.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/InProcessIpcService.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "remote/RemoteServerFixture.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "settings/KTNotificationSettingsService.h"

#include <deque>

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr const char* proxyApp = "com.example.proxy";
constexpr const char* schedulerApp = "com.example.scheduler";
constexpr const char* preferencesApp = "com.example.preferences";
constexpr const char* registerRefusal
    = "Entitlment 'com.tamber.tessel.registrar.proxy' required to register user notificaion settings for "
      "com.example.other";
constexpr const char* administerRefusal
    = "Entitlment 'com.tamber.tessel.registrar.remote-notification-settings' "
      "required to administer remote notificaion settings";

class TokenInbox final : public KTSNotificationRegistrarClientProtocol {
public:
    void didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier) override
    {
        std::lock_guard lock(_lock);
        tokens.emplace_back(bundleIdentifier, token);
    }
    std::vector<std::pair<std::string, Bytes>> received()
    {
        std::lock_guard lock(_lock);
        return tokens;
    }

private:
    std::mutex _lock;
    std::vector<std::pair<std::string, Bytes>> tokens;
};

// One application's connection, as the transport identified it.
struct Client {
    std::shared_ptr<IpcConnection> end;
    std::shared_ptr<KTSNotificationRegistrarServerProtocol> registrar;
    std::shared_ptr<TokenInbox> inbox = std::make_shared<TokenInbox>();
};

class RegistrarListenerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto& workspace = device.applicationWorkspace();
        for (auto id : { app, otherApp })
            ASSERT_TRUE(workspace.install({ .identifier = id }));
        ASSERT_TRUE(workspace.install({ .identifier = proxyApp,
            .entitlements = { { KTSNotificationRegistrarProxyEntitlementName, true } } }));
        ASSERT_TRUE(workspace.install({ .identifier = schedulerApp,
            .entitlements = { { KTLocalNotificationsSchedulingProxyEntitlement, true } } }));
        ASSERT_TRUE(workspace.install({ .identifier = preferencesApp,
            .entitlements = { { KTRemoteNotificationsPreferencesEntitlement, true } } }));
        // The user allows every application that asks.
        for (int alert = 0; alert < 4; ++alert)
            device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
        listener = KTNotificationRegistrarConnectionListener::initWithSystemStateProvider(state);
        device.waitUntilIdle();
    }
    void TearDown() override
    {
        for (auto& client : clients)
            client.end->invalidate();
        device.waitUntilIdle();
    }

    Client& connect(const std::string& bundleIdentifier)
    {
        Client client;
        client.end = device.ipc().connect(KTSNotificationRegistrarServiceName,
            { .pid = static_cast<int32_t>(100 + clients.size()), .bundleIdentifier = bundleIdentifier });
        EXPECT_TRUE(client.end);
        client.end->setExportedInterface(KTSNotificationRegistrarService::clientInterface());
        client.end->setExportedObject<KTSNotificationRegistrarClientProtocol>(client.inbox);
        client.end->setRemoteObjectInterface(KTSNotificationRegistrarService::serverInterface());
        client.end->resume();
        client.registrar = client.end->remoteObjectProxy<KTSNotificationRegistrarServerProtocol>();
        clients.push_back(client);
        return clients.back();
    }

    // A token for the application, as the push service hands it out.
    void deliverToken(const std::string& bundleIdentifier, const Bytes& token)
    {
        auto& server = *listener->remoteNotificationServer();
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value::Dictionary { { KTNotificationBundleIdentifierKey, bundleIdentifier },
                { KTNotificationEnabledKey, true } });
        server.requestRemoteNotificationTokenWithEnvironment(PushEnvironmentProduction, bundleIdentifier);
        device.waitUntilIdle();
        auto record
            = server.queue()->sync([&] { return server._queue_clientForBundleIdentifier(bundleIdentifier); });
        ASSERT_TRUE(record && device.pushService().connection(PushEnvironmentProduction));
        device.pushService()
            .connection(PushEnvironmentProduction)
            ->sendToken(token, bundleIdentifier, record->tokenIdentifier());
        device.waitUntilIdle();
    }
    uint64_t storedTypes(const std::string& bundleIdentifier)
    {
        return KTNotificationSettingsService::sharedInstance()->notificationTypesForBundleIdentifier(
            bundleIdentifier);
    }

    SimulatedDevice device;
    std::shared_ptr<FakeSystemState> state = std::make_shared<FakeSystemState>();
    std::shared_ptr<KTNotificationRegistrarConnectionListener> listener;
    std::deque<Client> clients; // stable references
};

TEST_F(RegistrarListenerTest, EachCallerActsForItsOwnApplicationOrAsItsEntitlementsAllow)
{
    // Refused callers first: each allowed one adds its own type to what is stored.
    struct Case {
        const char* caller;
        bool registersForOthers;
        bool administers;
        uint64_t types;
    } cases[] = {
        { app, false, false, NotificationSettings::TypeBadge },
        { preferencesApp, false, true, NotificationSettings::TypeBadge },
        { proxyApp, true, false, NotificationSettings::TypeSound },
        { schedulerApp, true, false, NotificationSettings::TypeAlert },
    };
    uint64_t stored = 0;
    for (const auto& c : cases) {
        device.systemLog().clear();
        auto& client = connect(c.caller);
        std::mutex lock;
        std::set<std::string> answered;
        auto note = [&](std::string what) {
            return [&, what](auto&&...) {
                std::lock_guard guard(lock);
                answered.insert(what);
            };
        };
        client.registrar->notificationTypesForBundleIdentifier(c.caller, note("own types"));
        client.registrar->notificationTypesForBundleIdentifier(otherApp, note("other types"));
        client.registrar->registerNotificationSettings(
            NotificationSettings::settingsForTypes(c.types, {}), otherApp, note("other settings"));
        client.registrar->backgroundAppRefreshBundleIdentifierMappingWithResult(note("mapping"));
        device.waitUntilIdle();

        std::set<std::string> expected { "own types" };
        if (c.registersForOthers)
            expected.insert({ "other types", "other settings" });
        if (c.administers)
            expected.insert("mapping");
        EXPECT_EQ(answered, expected) << c.caller;
        if (c.registersForOthers)
            stored |= c.types;
        EXPECT_EQ(storedTypes(otherApp), stored) << c.caller;
        EXPECT_EQ(device.systemLog().count(registerRefusal), c.registersForOthers ? 0u : 2u) << c.caller;
        EXPECT_EQ(device.systemLog().count(administerRefusal), c.administers ? 0u : 1u) << c.caller;
    }
}

TEST_F(RegistrarListenerTest, RemoteRegistrationAnswersTheHostsUnsupportedError)
{
    auto& workspace = device.applicationWorkspace();
    ASSERT_TRUE(workspace.install({ .identifier = "com.tamber.vantry",
        .strings = { { "en",
            { { "Localizable",
                { { "REMOTE_NOTIFICATION_SIMULATOR_NOT_SUPPORTED_NSERROR_DESCRIPTION",
                    "No push here" } } } } } } }));
    device.platform().hostBundlePath = workspace.bundlePathForInstall("com.tamber.vantry");
    auto& client = connect(app);
    std::vector<std::optional<KTSError>> errors;
    client.registrar->registerRemoteNotificationTypes(7, app, [&](auto error) { errors.push_back(error); });
    client.registrar->requestTokenForRemoteNotificationsForBundleIdentifier(
        app, [&](auto error) { errors.push_back(error); });
    client.registrar->requestTokenForRemoteNotificationsForBundleIdentifier(
        otherApp, [&](auto error) { errors.push_back(error); });
    device.waitUntilIdle();
    KTSError expected { GeneralErrorDomain, 3010, "No push here" };
    EXPECT_EQ(errors, (std::vector<std::optional<KTSError>> { expected, expected }));
    EXPECT_TRUE(device.systemLog().contains("Remote notifications are not supported in the simulator"));
}

TEST_F(RegistrarListenerTest, BadgeRegistrationRegistersTheBadgeType)
{
    connect(app).registrar->registerBadgeSettingForBundleIdentifier(app, nullptr);
    device.waitUntilIdle();
    EXPECT_EQ(storedTypes(app), NotificationSettings::TypeBadge);
}

TEST_F(RegistrarListenerTest, TokensReachEveryConnectionThatObservesOnceAndNoOtherOne)
{
    auto& twice = connect(app);
    auto& stopped = connect(app);
    auto& gone = connect(app);
    auto& other = connect(otherApp);
    auto& refused = connect(otherApp);
    for (auto* client : { &twice, &twice, &stopped, &gone })
        client->registrar->setObservingRemoteNotifications(true, app, nullptr);
    stopped.registrar->setObservingRemoteNotifications(false, app, nullptr);
    other.registrar->setObservingRemoteNotifications(true, otherApp, nullptr);
    refused.registrar->setObservingRemoteNotifications(true, app, nullptr);
    device.waitUntilIdle();
    // Still an observer after it ended: the delivery to it goes nowhere.
    gone.end->invalidate();
    device.waitUntilIdle();

    Bytes token { 1, 2, 3 };
    deliverToken(app, token);
    EXPECT_EQ(twice.inbox->received(), (std::vector<std::pair<std::string, Bytes>> { { app, token } }));
    for (auto* client : { &stopped, &gone, &other, &refused })
        EXPECT_TRUE(client->inbox->received().empty());
}

} // namespace
