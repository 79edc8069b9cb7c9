// A started server as a host runs it: both services on a private bus, reached
// by the client library and by a client in another process, and push messages
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
#include "store/KTNotificationStore.h"

#include "tessel/TesselServices.h"

using namespace tessel;
using namespace tessel::ipctest;
using namespace tessel::testing;

namespace {

// This process is the application; any other one is the other application.
class StartedServer : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(bus.address().empty());
        device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app,
            .strings = { { "en", { { "Localizable", { { "GREETING", "Hello %@" } } } } } } }));
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = otherApp }));
        device.platform().ipc
            = std::make_shared<DbusIpcService>(bus.address(), IpcLimits {}, [](int32_t pid, uint32_t) {
                  return IpcPeer { .bundleIdentifier = pid == getpid() ? app : otherApp };
              });
        device.platform().pushService = std::make_shared<LinuxPushService>(pushDirectory.path());
        KTTesselServerStart(std::make_shared<FakeSystemState>());
    }
    void TearDown() override
    {
        KTTesselServer::sharedInstance()->registrarConnectionListener()->invalidate();
        KTTesselServer::sharedInstance()->schedulerConnectionListener()->invalidate();
    }

    ClientOptions options()
    {
        return { .busAddress = bus.address(),
            .errorHandler =
                [this](const ClientError& error) {
                    bool limit = error.code == ClientErrorCode::LimitExceeded;
                    events.push((limit ? "limit " : "error ") + error.operation);
                },
            .timeout = 10s };
    }
    KTRemoteNotificationServer& pushServer()
    {
        return *KTTesselServer::sharedInstance()->registrarConnectionListener()->remoteNotificationServer();
    }
    void enable(const std::string& id)
    {
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value::Dictionary {
                { KTNotificationBundleIdentifierKey, id }, { KTNotificationEnabledKey, true } });
        device.waitUntilIdle();
    }
    bool inject(const std::string& topic, const Value& system)
    {
        auto bytes
            = PropertyList::data(Value::Dictionary { { "rlx", system } }, PropertyList::Format::Binary);
        return TesselInjectPushMessage(PushEnvironmentProduction, topic.c_str(), bytes->data(), bytes->size(),
            10, device.clock().now().timeIntervalSinceReferenceDate());
    }

    PrivateBus bus;
    SimulatedDevice device;
    TemporaryDirectory pushDirectory;
    Mailbox<std::string> events;
};

TEST_F(StartedServer, AnObservingClientGetsItsTokenAndInjectedMessagesArePresented)
{
    KTSNotificationRegistrarClient client(options());
    client.setObserver({ .didReceiveDeviceToken = [&](auto& token, auto& id) {
        events.push("token " + Value(Bytes(token)).description() + " " + id);
    } });
    NotificationSettingsFields settings { .types = NotificationTypeAlert | NotificationTypeSound };
    client.registerNotificationSettings(*settings.archive(), app,
        [&](auto answer) { events.push(answer ? "registered" : "not registered"); });
    client.setObservingRemoteNotifications(true, app, [&] { events.push("observing"); });
    ASSERT_EQ(events.waitFor(2).size(), 2u);
    // The other application, in another process, prints the first token it is sent.
    ChildProcess other({ "/usr/bin/python3", TESSEL_SOURCE_DIR "/tests/ipc/registrar_client.py",
        bus.address(), "observe", otherApp });
    auto observing = other.read(10s);
    if (observing != "observing" && other.exitStatus() == 3)
        GTEST_SKIP() << *observing;
    ASSERT_EQ(observing, "observing");

    // The loopback source hands each registration its token: the one
    // application's first, then the other's.
    std::map<std::string, std::string> tokens;
    for (auto id : { app, otherApp }) {
        // Applications cannot register for push here; the host does it for them.
        enable(id);
        pushServer().requestRemoteNotificationTokenWithEnvironment(PushEnvironmentProduction, id);
        device.waitUntilIdle();
        auto record
            = pushServer().queue()->sync([&] { return pushServer()._queue_clientForBundleIdentifier(id); });
        ASSERT_TRUE(record);
        auto token = std::static_pointer_cast<LinuxPushService>(device.platform().pushService)
                         ->tokenForTopic(PushEnvironmentProduction, id, record->tokenIdentifier());
        tokens[id] = Value(token).description();
    }
    EXPECT_EQ(events.waitFor(3).back(), "token " + tokens[app] + " com.example.app");
    auto hex = tokens[otherApp].substr(1, tokens[otherApp].size() - 2);
    std::erase(hex, ' ');
    EXPECT_EQ(other.read(10s, true), "token " + hex + " com.example.other unicast\n");

    EXPECT_FALSE(inject("com.example.unknown", Value::Dictionary { { "alert", "Not subscribed" } }));
    EXPECT_TRUE(inject(app,
        Value::Dictionary { { "alert",
            Value::Dictionary { { "loc-key", "GREETING" }, { "loc-args", Value::Array { "Ada" } } } } }));
    device.waitUntilIdle();
    std::vector<std::string> presented;
    for (auto& event : device.bulletinService().events(app))
        if (event.bulletin && event.bulletin->message)
            presented.push_back(*event.bulletin->message);
    EXPECT_EQ(presented, std::vector<std::string> { "Hello Ada" });
}

TEST_F(StartedServer, AClientSchedulesObservesAndSeesItsNotificationFire)
{
    enable(app);
    KTSNotificationSchedulerClient client(options());
    auto bodies = [](const KTSNotificationSchedulerClient::List& list) {
        std::string text;
        for (auto& record : list)
            text += " "
                + LocalNotificationFields::unarchive(record).value_or(LocalNotificationFields {}).alertBody;
        return text;
    };
    client.setObserver({ .didChangeScheduledLocalNotifications
        = [&](auto& list, auto&) { events.push("change" + bodies(list)); },
        .didFireLocalNotifications = [&](auto& list, auto&) { events.push("fire" + bodies(list)); } });
    client.setObservingScheduledLocalNotifications(true, app, [&] { events.push("observing"); });
    double now = device.clock().now().timeIntervalSinceReferenceDate();
    LocalNotificationFields tea { .fireDate = now + 60, .alertBody = "Tea" };
    client.addScheduledLocalNotifications({ *tea.archive() }, app);
    ASSERT_EQ(events.waitFor(2).size(), 2u);

    device.advance(60);
    EXPECT_EQ(
        events.waitFor(4), (std::vector<std::string> { "observing", "change Tea", "fire Tea", "change" }));
    auto stored = KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app);
    ASSERT_EQ(stored.arrayValue().size(), 1u);
    EXPECT_EQ(stored.arrayValue()[0][KTNotificationStoreMessageKey].stringValue(), "Tea");

    // A notification repeating every minute: a window of its fire dates is
    // answered, a request without end or size is refused.
    LocalNotificationFields tick {
        .fireDate = now + 120, .repeatInterval = RepeatUnit::Minute, .alertBody = "Tick"
    };
    client.setScheduledLocalNotifications({ *tick.archive() }, app);
    Mailbox<std::string> schedules;
    auto note = [&](std::vector<ScheduleEntry> schedule) {
        auto first = schedule.empty() ? 0 : schedule.front().fireDate - now;
        schedules.push(std::to_string(schedule.size()) + " from " + std::to_string(static_cast<int>(first)));
    };
    client.scheduleForBundleIdentifier(app, { .endDate = now + 600.5 }, note);
    client.scheduleForBundleIdentifier(app, {}, note);
    EXPECT_EQ(schedules.waitFor(1), std::vector<std::string> { "9 from 120" });
    EXPECT_EQ(events.waitFor(6).back(), "limit scheduleForBundleIdentifier");
}

} // namespace
