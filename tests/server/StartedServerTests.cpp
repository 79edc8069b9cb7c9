// A started server as a host runs it: services on a private bus, push messages
// handed to the loopback push source through the C interface.
#include "ipc/IpcTestSupport.h"
#include "ipc/KTNotificationRegistrarConnectionListener.h"
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "platform/archive/PropertyList.h"
#include "platform/linux/LinuxPushService.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "remote/RemoteServerFixture.h"
#include "server/KTTesselServer.h"

#include "tessel/TesselServices.h"

using namespace tessel;
using namespace tessel::ipctest;
using namespace tessel::testing;

namespace {

bool inject(const std::string& topic, const Value& payload)
{
    auto bytes = PropertyList::data(payload, PropertyList::Format::Binary).value_or(Bytes {});
    return TesselInjectPushMessage(PushEnvironmentProduction, topic.c_str(), bytes.data(), bytes.size(), 10,
        Platform::current().clock->now().timeIntervalSinceReferenceDate());
}

TEST(StartedServer, AnswersOverTheBusAndPresentsInjectedPushMessages)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    SimulatedDevice device;
    device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app,
        .displayName = "Example",
        .strings = { { "en", { { "Localizable", { { "GREETING", "Hello %@" } } } } } } }));
    device.platform().ipc = std::make_shared<DbusIpcService>(
        bus.address(), IpcLimits {}, [](int32_t, uint32_t) { return IpcPeer { .bundleIdentifier = app }; });
    TemporaryDirectory pushDirectory;
    device.platform().pushService = std::make_shared<LinuxPushService>(pushDirectory.path());
    KTTesselServerStart(std::make_shared<FakeSystemState>());

    KTSNotificationRegistrarClient client(ClientOptions { .busAddress = bus.address(), .timeout = 10s });
    Mailbox<bool> registered;
    NotificationSettingsFields settings { .types = NotificationTypeAlert | NotificationTypeSound };
    client.registerNotificationSettings(
        *settings.archive(), app, [&](auto answer) { registered.push(answer.has_value()); });
    ASSERT_EQ(registered.waitFor(1), std::vector<bool> { true });
    device.waitUntilIdle();
    // Applications cannot register for push here; the host does it for them.
    auto& listener = *KTTesselServer::sharedInstance()->registrarConnectionListener();
    listener.remoteNotificationServer()->requestRemoteNotificationTokenWithEnvironment(
        PushEnvironmentProduction, app);
    device.waitUntilIdle();

    EXPECT_FALSE(inject(
        otherApp, Value::Dictionary { { "rlx", Value::Dictionary { { "alert", "Not subscribed" } } } }));
    EXPECT_TRUE(inject(app,
        Value::Dictionary { { "rlx",
            Value::Dictionary { { "alert",
                Value::Dictionary {
                    { "loc-key", "GREETING" }, { "loc-args", Value::Array { "Ada" } } } } } } }));
    device.waitUntilIdle();
    std::vector<std::string> presented;
    for (auto& event : device.bulletinService().events(app))
        if (event.bulletin && event.bulletin->message)
            presented.push_back(*event.bulletin->message);
    EXPECT_EQ(presented, std::vector<std::string> { "Hello Ada" });
    listener.invalidate();
    KTTesselServer::sharedInstance()->schedulerConnectionListener()->invalidate();
}

} // namespace
