// The two services as applications reach them in process: who may ask for
// what, and which connections hear of tokens, changes and firings.
#include "ipc/KTNotificationRegistrarConnectionListener.h"
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "local/KTLocalNotificationService.h"
#include "platform/foundation/ErrorDomains.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/records/LocalNotification.h"
#include "platform/records/NotificationSettings.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/InProcessIpcService.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "remote/RemoteServerFixture.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerClientProtocol.h"
#include "services/KTSNotificationSchedulerService.h"
#include "settings/KTNotificationSettingsService.h"

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr const char* registrarProxy = "com.example.registrar-proxy";
constexpr const char* schedulerProxy = "com.example.scheduler-proxy";
constexpr const char* schedulingProxy = "com.example.scheduling-proxy";
constexpr const char* preferences = "com.example.preferences";

// A multiset: an event heard twice shows twice.
using Lines = std::multiset<std::string>;
using List = KTSNotificationSchedulerServerProtocol::List;

// What arrived, one line each, from whichever thread.
class Heard {
public:
    auto note(std::string line)
    {
        return [this, line](auto&&...) { add(line); };
    }
    void add(const std::string& line)
    {
        std::lock_guard guard(_lock);
        _lines.insert(line);
    }
    Lines lines()
    {
        std::lock_guard guard(_lock);
        return std::exchange(_lines, {});
    }

private:
    std::mutex _lock;
    Lines _lines;
};

class Events final : public Heard,
                     public KTSNotificationRegistrarClientProtocol,
                     public KTSNotificationSchedulerClientProtocol {
public:
    void didReceiveDeviceToken(const Bytes& token, const std::string& id) override
    {
        add("token " + id + " " + Value(token).description());
    }
    void didChangeScheduledLocalNotifications(const List& list, const std::string& id) override
    {
        add("change " + id + " " + std::to_string(list.size()));
    }
    void didFireLocalNotifications(const List& list, const std::string& id) override
    {
        for (auto& notification : list)
            add("fire " + id + " " + notification->alertBody());
    }
};

class ConnectionListenerTest : public RemoteServerFixture {
protected:
    void SetUp() override
    {
        RemoteServerFixture::SetUp();
        auto& workspace = device.applicationWorkspace();
        for (auto id : { app, otherApp })
            ASSERT_TRUE(workspace.install({ .identifier = id }));
        for (auto [id, entitlement] :
            { std::pair { registrarProxy, KTSNotificationRegistrarProxyEntitlementName },
                { schedulerProxy, KTSNotificationSchedulerProxyEntitlementName },
                { schedulingProxy, KTLocalNotificationsSchedulingProxyEntitlement },
                { preferences, KTRemoteNotificationsPreferencesEntitlement } })
            ASSERT_TRUE(workspace.install({ .identifier = id, .entitlements = { { entitlement, true } } }));
        KTLocalNotificationService::sharedInstance();
        for (auto id : { app, otherApp })
            setNotificationsEnabled(id, true);
        // The user allows every application that asks.
        for (int alert = 0; alert < 4; ++alert)
            device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
        registrar = KTNotificationRegistrarConnectionListener::initWithSystemStateProvider(state);
        scheduler = KTNotificationSchedulerConnectionListener::init();
        device.waitUntilIdle();
    }
    void TearDown() override
    {
        for (auto& end : ends)
            end->invalidate();
        device.waitUntilIdle();
        RemoteServerFixture::TearDown();
    }

    // The service's protocol for an application's new connection; its events go to events.
    template <typename Server, typename Service, typename ClientProtocol>
    std::shared_ptr<Server> connect(
        const char* serviceName, const std::string& id, const std::shared_ptr<Events>& events = {})
    {
        auto end = device.ipc().connect(
            serviceName, { .pid = static_cast<int32_t>(100 + ends.size()), .bundleIdentifier = id });
        EXPECT_TRUE(end);
        end->setExportedInterface(Service::clientInterface());
        end->template setExportedObject<ClientProtocol>(events ? events : std::make_shared<Events>());
        end->setRemoteObjectInterface(Service::serverInterface());
        end->resume();
        ends.push_back(end);
        return end->template remoteObjectProxy<Server>();
    }
    auto connectRegistrar(const std::string& id, const std::shared_ptr<Events>& events = {})
    {
        return connect<KTSNotificationRegistrarServerProtocol, KTSNotificationRegistrarService,
            KTSNotificationRegistrarClientProtocol>(KTSNotificationRegistrarServiceName, id, events);
    }
    auto connectScheduler(const std::string& id, const std::shared_ptr<Events>& events = {})
    {
        return connect<KTSNotificationSchedulerServerProtocol, KTSNotificationSchedulerService,
            KTSNotificationSchedulerClientProtocol>(KTSNotificationSchedulerServiceName, id, events);
    }
    uint64_t storedTypes(const std::string& id)
    {
        return KTNotificationSettingsService::sharedInstance()->notificationTypesForBundleIdentifier(id);
    }
    std::shared_ptr<LocalNotification> inSeconds(double seconds, std::string body)
    {
        auto notification = std::make_shared<LocalNotification>();
        notification->setFireDate(device.clock().now().addingTimeInterval(seconds));
        notification->setAlertBody(std::move(body));
        return notification;
    }

    std::shared_ptr<KTNotificationRegistrarConnectionListener> registrar;
    std::shared_ptr<KTNotificationSchedulerConnectionListener> scheduler;
    std::vector<std::shared_ptr<IpcConnection>> ends;
};

// Refused callers first: each allowed one adds its own type to what is stored.
TEST_F(ConnectionListenerTest, EachCallerActsForItsOwnApplicationOrAsItsEntitlementsAllow)
{
    struct Case {
        const char* caller;
        bool registers, administers, schedules;
        uint64_t types;
    } cases[] = {
        { app, false, false, false, NotificationSettings::TypeBadge },
        { preferences, false, true, false, NotificationSettings::TypeBadge },
        { schedulerProxy, false, false, true, NotificationSettings::TypeBadge },
        { registrarProxy, true, false, false, NotificationSettings::TypeSound },
        { schedulingProxy, true, false, true, NotificationSettings::TypeAlert },
    };
    uint64_t stored = 0;
    std::set<std::string> scheduled;
    for (const auto& c : cases) {
        device.systemLog().clear();
        Heard answers;
        auto registrar = connectRegistrar(c.caller);
        registrar->notificationTypesForBundleIdentifier(c.caller, answers.note("own types"));
        registrar->notificationTypesForBundleIdentifier(otherApp, answers.note("types"));
        registrar->registerNotificationSettings(
            NotificationSettings::settingsForTypes(c.types, {}), otherApp, answers.note("settings"));
        registrar->backgroundAppRefreshBundleIdentifierMappingWithResult(answers.note("mapping"));
        auto scheduler = connectScheduler(c.caller);
        List one { inSeconds(60, c.caller) };
        scheduler->addScheduledLocalNotifications(one, otherApp, answers.note("add"));
        scheduler->snoozeScheduledLocalNotifications(one, otherApp, answers.note("snooze"));
        scheduler->snoozeScheduledLocalNotifications(one, otherApp, nullptr);
        scheduler->scheduledLocalNotificationsForBundleIdentifier(otherApp, answers.note("list"));
        device.waitUntilIdle();

        Lines expected { "own types" };
        if (c.registers)
            expected.insert({ "types", "settings" });
        if (c.administers)
            expected.insert("mapping");
        if (c.schedules)
            expected.insert({ "add", "snooze", "list" });
        EXPECT_EQ(answers.lines(), expected) << c.caller;
        stored |= c.registers ? c.types : 0;
        EXPECT_EQ(storedTypes(otherApp), stored) << c.caller;
        if (c.schedules)
            scheduled.insert(c.caller);
        std::set<std::string> bodies;
        for (auto& notification :
            KTLocalNotificationService::sharedInstance()->scheduledLocalNotificationsForBundleIdentifier(
                otherApp))
            bodies.insert(notification->alertBody());
        EXPECT_EQ(bodies, scheduled) << c.caller;

        // Each refusal logged once: two register-rule requests, one administer-rule, four schedule-rule.
        for (auto [allowed, refusals, text] :
            { std::tuple { c.registers, 2u,
                  "Entitlment 'com.tamber.tessel.registrar.proxy' required to register user notificaion "
                  "settings for com.example.other" },
                { c.administers, 1u,
                    "Entitlment 'com.tamber.tessel.registrar.remote-notification-settings' required to "
                    "administer remote notificaion settings" },
                { c.schedules, 4u,
                    "Entitlment 'com.tamber.tessel.scheduler.proxy' required to schedule local notifications "
                    "for com.example.other" } })
            EXPECT_EQ(device.systemLog().count(text), allowed ? 0u : refusals) << c.caller << " " << text;
    }
}

TEST_F(ConnectionListenerTest, RemoteRegistrationAnswersTheHostsErrorAndBadgesRegisterTheBadgeType)
{
    auto& workspace = device.applicationWorkspace();
    ASSERT_TRUE(workspace.install({ .identifier = "com.tamber.vantry",
        .strings = { { "en",
            { { "Localizable",
                { { "REMOTE_NOTIFICATION_SIMULATOR_NOT_SUPPORTED_NSERROR_DESCRIPTION",
                    "No push here" } } } } } } }));
    device.platform().hostBundlePath = workspace.bundlePathForInstall("com.tamber.vantry");
    auto client = connectRegistrar(app);
    std::vector<std::optional<KTSError>> errors;
    client->registerRemoteNotificationTypes(7, app, [&](auto error) { errors.push_back(error); });
    client->requestTokenForRemoteNotificationsForBundleIdentifier(
        app, [&](auto error) { errors.push_back(error); });
    client->registerBadgeSettingForBundleIdentifier(app, nullptr);
    device.waitUntilIdle();
    KTSError expected { GeneralErrorDomain, 3010, "No push here" };
    EXPECT_EQ(errors, (std::vector<std::optional<KTSError>> { expected, expected }));
    EXPECT_TRUE(device.systemLog().contains("Remote notifications are not supported in the simulator"));
    EXPECT_EQ(storedTypes(app), NotificationSettings::TypeBadge);
}

// Observing is a set; a connection that ended stays an observer, and what is
// sent to it goes nowhere.
TEST_F(ConnectionListenerTest, TokensChangesAndFiringsReachTheObserversOfTheirApplicationOnce)
{
    auto observer = std::make_shared<Events>(), stopped = std::make_shared<Events>(),
         gone = std::make_shared<Events>(), other = std::make_shared<Events>(),
         refused = std::make_shared<Events>();
    auto observe = [&](const std::string& id, const std::shared_ptr<Events>& events,
                       const std::string& observed, int times = 1) {
        auto registrar = connectRegistrar(id, events);
        auto scheduler = connectScheduler(id, events);
        for (int time = 0; time < times; ++time) {
            registrar->setObservingRemoteNotifications(true, observed, nullptr);
            scheduler->setObservingScheduledLocalNotifications(true, observed, nullptr);
        }
    };
    observe(app, observer, app, 2);
    observe(app, gone, app);
    observe(otherApp, other, otherApp);
    observe(otherApp, refused, app);
    auto stopping = connectRegistrar(app, stopped);
    stopping->setObservingRemoteNotifications(true, app, nullptr);
    stopping->setObservingRemoteNotifications(false, app, nullptr);
    device.waitUntilIdle();
    ends[2]->invalidate();
    ends[3]->invalidate();
    device.waitUntilIdle();

    registrar->didReceiveDeviceToken({ 1, 2, 3 }, app);
    connectScheduler(app)->addScheduledLocalNotifications({ inSeconds(10, "wake up") }, app, nullptr);
    device.waitUntilIdle();
    device.advance(10);

    EXPECT_EQ(observer->lines(),
        (Lines { "token com.example.app <010203>", "change com.example.app 1", "fire com.example.app wake up",
            "change com.example.app 0" }));
    for (auto& events : { stopped, gone, other, refused })
        EXPECT_EQ(events->lines(), Lines {});
}

} // namespace
