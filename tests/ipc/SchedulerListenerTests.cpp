// The scheduler service as applications reach it: who may schedule for whom,
// and who hears of changes and firings.
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "local/KTLocalNotificationService.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/InProcessIpcService.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationSchedulerClientProtocol.h"
#include "services/KTSNotificationSchedulerService.h"

#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <set>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

constexpr const char* app = "com.example.app";
constexpr const char* otherApp = "com.example.other";
constexpr const char* proxyApp = "com.example.proxy";
constexpr const char* schedulerApp = "com.example.scheduler";
constexpr const char* refusal = "Entitlment 'com.tamber.tessel.scheduler.proxy' required to schedule local "
                                "notifications for com.example.other";

using List = KTSNotificationSchedulerServerProtocol::List;

// What one client heard, as "change <bundle> <count>" and "fire <bundle> <body>".
class EventInbox final : public KTSNotificationSchedulerClientProtocol {
public:
    void didChangeScheduledLocalNotifications(const List& list, const std::string& id) override
    {
        add("change " + id + " " + std::to_string(list.size()));
    }
    void didFireLocalNotifications(const List& list, const std::string& id) override
    {
        for (auto& notification : list)
            add("fire " + id + " " + notification->alertBody());
    }
    std::vector<std::string> heard()
    {
        std::lock_guard lock(_lock);
        return _heard;
    }

private:
    void add(std::string event)
    {
        std::lock_guard lock(_lock);
        _heard.push_back(std::move(event));
    }
    std::mutex _lock;
    std::vector<std::string> _heard;
};

struct Client {
    std::shared_ptr<IpcConnection> end;
    std::shared_ptr<KTSNotificationSchedulerServerProtocol> scheduler;
    std::shared_ptr<EventInbox> inbox = std::make_shared<EventInbox>();
};

class SchedulerListenerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto& workspace = device.applicationWorkspace();
        for (auto id : { app, otherApp })
            ASSERT_TRUE(workspace.install({ .identifier = id }));
        ASSERT_TRUE(workspace.install({ .identifier = proxyApp,
            .entitlements = { { KTSNotificationSchedulerProxyEntitlementName, true } } }));
        ASSERT_TRUE(workspace.install({ .identifier = schedulerApp,
            .entitlements = { { KTLocalNotificationsSchedulingProxyEntitlement, true } } }));
        KTLocalNotificationService::sharedInstance();
        for (auto id : { app, otherApp })
            device.platform().notificationCenter->postNotification(
                KTNotificationSettingsDidChangeNotification, nullptr,
                Value::Dictionary {
                    { KTNotificationBundleIdentifierKey, id }, { KTNotificationEnabledKey, true } });
        listener = KTNotificationSchedulerConnectionListener::init();
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
        client.end = device.ipc().connect(KTSNotificationSchedulerServiceName,
            { .pid = static_cast<int32_t>(100 + clients.size()), .bundleIdentifier = bundleIdentifier });
        EXPECT_TRUE(client.end);
        client.end->setExportedInterface(KTSNotificationSchedulerService::clientInterface());
        client.end->setExportedObject<KTSNotificationSchedulerClientProtocol>(client.inbox);
        client.end->setRemoteObjectInterface(KTSNotificationSchedulerService::serverInterface());
        client.end->resume();
        client.scheduler = client.end->remoteObjectProxy<KTSNotificationSchedulerServerProtocol>();
        clients.push_back(client);
        return clients.back();
    }

    std::shared_ptr<LocalNotification> inSeconds(double seconds, std::string body)
    {
        auto notification = std::make_shared<LocalNotification>();
        notification->setFireDate(device.clock().now().addingTimeInterval(seconds));
        notification->setAlertBody(std::move(body));
        return notification;
    }

    SimulatedDevice device;
    std::shared_ptr<KTNotificationSchedulerConnectionListener> listener;
    std::deque<Client> clients; // stable references
};

TEST_F(SchedulerListenerTest, OnlyTheApplicationOrAnEntitledCallerSchedulesForIt)
{
    struct Case {
        const char* caller;
        bool allowed;
    } cases[] = { { app, false }, { proxyApp, true }, { schedulerApp, true } };
    for (const auto& c : cases) {
        device.systemLog().clear();
        auto& client = connect(c.caller);
        std::mutex lock;
        std::vector<std::string> answered;
        auto note = [&](std::string what) {
            return [&, what](auto&&...) {
                std::lock_guard guard(lock);
                answered.push_back(what);
            };
        };
        List one { inSeconds(60, c.caller) };
        client.scheduler->addScheduledLocalNotifications(one, otherApp, note("add"));
        client.scheduler->snoozeScheduledLocalNotifications(one, otherApp, note("snooze"));
        client.scheduler->snoozeScheduledLocalNotifications(one, otherApp, nullptr);
        client.scheduler->scheduledLocalNotificationsForBundleIdentifier(otherApp, note("list"));
        device.waitUntilIdle();

        std::sort(answered.begin(), answered.end());
        std::vector<std::string> expected;
        if (c.allowed)
            expected = { "add", "list", "snooze" };
        EXPECT_EQ(answered, expected) << c.caller;
        EXPECT_EQ(device.systemLog().count(refusal), c.allowed ? 0u : 4u) << c.caller;
    }
    // The allowed callers' notifications, and snoozed copies of them.
    std::set<std::string> bodies;
    for (auto& notification :
        KTLocalNotificationService::sharedInstance()->scheduledLocalNotificationsForBundleIdentifier(
            otherApp))
        bodies.insert(notification->alertBody());
    EXPECT_EQ(bodies, (std::set<std::string> { proxyApp, schedulerApp }));
}

TEST_F(SchedulerListenerTest, ChangesAndFiringsReachTheObserversOfTheirApplicationOnly)
{
    auto& first = connect(app);
    auto& second = connect(app);
    auto& other = connect(otherApp);
    auto& silent = connect(app);
    for (auto* client : { &first, &second })
        client->scheduler->setObservingScheduledLocalNotifications(true, app, nullptr);
    other.scheduler->setObservingScheduledLocalNotifications(true, otherApp, nullptr);
    device.waitUntilIdle();

    first.scheduler->addScheduledLocalNotifications({ inSeconds(10, "wake up") }, app, nullptr);
    device.waitUntilIdle();
    device.advance(10);

    for (auto* client : { &first, &second }) {
        auto heard = client->inbox->heard();
        ASSERT_FALSE(heard.empty());
        EXPECT_EQ(heard.front(), "change com.example.app 1");
        EXPECT_NE(std::find(heard.begin(), heard.end(), "fire com.example.app wake up"), heard.end());
    }
    EXPECT_TRUE(other.inbox->heard().empty());
    EXPECT_TRUE(silent.inbox->heard().empty());
}

} // namespace
