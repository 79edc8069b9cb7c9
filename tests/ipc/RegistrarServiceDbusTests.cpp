// The registrar service of a started server on a private bus, reached by the
// client library and by a client in another process.
#include "ipc/IpcTestSupport.h"
#include "ipc/KTNotificationRegistrarConnectionListener.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedPushService.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "remote/RemoteServerFixture.h"

#include "tessel/TesselServices.h"

using namespace tessel;
using namespace tessel::ipctest;
using namespace tessel::testing;

namespace {

TEST(RegistrarServiceOnTheBus, AnObservingClientGetsItsTokenAndNoOtherClientDoes)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    SimulatedDevice device;
    device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
    for (auto id : { app, otherApp })
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = id }));
    // This process is the application; any other one is the other application.
    auto service = std::make_shared<DbusIpcService>(bus.address(), IpcLimits {}, [](int32_t pid, uint32_t) {
        return IpcPeer { .bundleIdentifier = pid == getpid() ? app : otherApp };
    });
    device.platform().ipc = service;
    auto listener = KTNotificationRegistrarConnectionListener::initWithSystemStateProvider(
        std::make_shared<FakeSystemState>());
    ASSERT_TRUE(service->start());

    Mailbox<std::string> events;
    auto client = std::make_unique<KTSNotificationRegistrarClient>(
        ClientOptions { .busAddress = bus.address(), .timeout = 10s });
    client->setObserver({ .didReceiveDeviceToken = [&](auto& token, auto& id) {
        events.push("token " + Value(Bytes(token)).description() + " " + id);
    } });
    NotificationSettingsFields settings { .types = NotificationTypeBadge | NotificationTypeSound };
    client->registerNotificationSettings(*settings.archive(), app,
        [&](auto registered) { events.push(registered ? "registered" : "not registered"); });
    client->setObservingRemoteNotifications(true, app, [&] { events.push("observing"); });
    ASSERT_EQ(events.waitFor(2).size(), 2u);
    ChildProcess other({ "/usr/bin/python3", TESSEL_SOURCE_DIR "/tests/ipc/registrar_client.py",
        bus.address(), "observe", otherApp });
    auto observing = other.read(10s);
    if (observing != "observing" && other.exitStatus() == 3)
        GTEST_SKIP() << *observing;
    ASSERT_EQ(observing, "observing");

    // Tokens for both applications, the one's first: the other client prints the
    // first token it is sent.
    auto& server = *listener->remoteNotificationServer();
    for (auto id : { app, otherApp }) {
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value::Dictionary {
                { KTNotificationBundleIdentifierKey, id }, { KTNotificationEnabledKey, true } });
        server.requestRemoteNotificationTokenWithEnvironment(PushEnvironmentProduction, id);
        device.waitUntilIdle();
        auto record = server.queue()->sync([&] { return server._queue_clientForBundleIdentifier(id); });
        ASSERT_TRUE(record);
        device.pushService()
            .connection(PushEnvironmentProduction)
            ->sendToken({ 0xab, uint8_t(id == std::string(app) ? 1 : 2) }, id, record->tokenIdentifier());
    }

    auto got = events.waitFor(3);
    EXPECT_EQ(std::set<std::string>(got.begin(), got.end()),
        (std::set<std::string> { "registered", "observing", "token <ab01> com.example.app" }));
    EXPECT_EQ(other.read(10s, true), "token ab02 com.example.other unicast\n");
    client.reset();
    listener->invalidate();
}

} // namespace
