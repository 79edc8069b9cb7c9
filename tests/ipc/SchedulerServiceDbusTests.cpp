// The scheduler service on a private bus, reached by the client library: a
// client schedules, observes, sees its notification fire and asks for fire dates.
#include "ipc/IpcTestSupport.h"
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "local/KTLocalNotificationService.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include "tessel/TesselServices.h"

#include <tessel/Tessel.h>

using namespace tessel;
using namespace tessel::ipctest;

namespace {

constexpr const char* app = "com.example.app";

TEST(SchedulerServiceOnTheBus, AClientSchedulesObservesAndSeesItsNotificationFire)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    SimulatedDevice device;
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app }));
    device.platform().ipc = std::make_shared<DbusIpcService>(
        bus.address(), IpcLimits {}, [](int32_t, uint32_t) { return IpcPeer { .bundleIdentifier = app }; });
    KTLocalNotificationService::sharedInstance();
    device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
        nullptr,
        Value::Dictionary { { KTNotificationBundleIdentifierKey, app }, { KTNotificationEnabledKey, true } });
    auto listener = KTNotificationSchedulerConnectionListener::init();
    device.waitUntilIdle();

    Mailbox<std::string> events;
    KTSNotificationSchedulerClient client(ClientOptions { .busAddress = bus.address(),
        .errorHandler =
            [&](const ClientError& error) {
                events.push(std::string(error.code == ClientErrorCode::LimitExceeded ? "limit " : "error ")
                    + error.operation);
            },
        .timeout = 10s });
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
    auto heard = events.waitFor(4);
    EXPECT_EQ(heard, (std::vector<std::string> { "observing", "change Tea", "fire Tea", "change" }));
    auto stored = KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app);
    ASSERT_EQ(stored.arrayValue().size(), 1u);
    EXPECT_EQ(stored.arrayValue()[0][KTNotificationStoreMessageKey].stringValue(), "Tea");

    // Fire dates of a notification repeating every minute: a window is
    // answered, a request without end or size is refused.
    LocalNotificationFields tick {
        .fireDate = now + 120, .repeatInterval = RepeatUnit::Minute, .alertBody = "Tick"
    };
    client.setScheduledLocalNotifications({ *tick.archive() }, app);
    Mailbox<size_t> schedules;
    client.scheduleForBundleIdentifier(
        app, { .endDate = now + 600.5 }, [&](auto schedule) { schedules.push(schedule.size()); });
    client.scheduleForBundleIdentifier(app, {}, [&](auto schedule) { schedules.push(schedule.size()); });
    EXPECT_EQ(schedules.waitFor(1), std::vector<size_t> { 9 });
    auto all = events.waitFor(6);
    EXPECT_EQ(all.back(), "limit scheduleForBundleIdentifier");
    listener->invalidate();
}

} // namespace
