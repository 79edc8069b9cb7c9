#include "local/LocalClientFixture.h"

#include "local/KTLocalNotificationService.h"
#include "platform/bulletins/SectionInfo.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/location/LocationServices.h"
#include "platform/location/Region.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

using namespace tessel;
using tessel::testing_support::LocalClientTest;

namespace {

constexpr const char* alarm = "com.example.alarm";
constexpr const char* diary = "com.example.diary";
constexpr const char* quiet = "com.example.quiet";

// The fixture's application is the alarm; the service runs the clients.
class LocalService : public LocalClientTest {
protected:
    void SetUp() override
    {
        LocalClientTest::SetUp();
        for (auto identifier : { diary, quiet })
            ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = identifier }));
        service = KTLocalNotificationService::sharedInstance();
        device.waitUntilIdle();
    }

    void setEnabled(const std::string& bundleIdentifier, bool enabled)
    {
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value(Value::Dictionary { { KTNotificationBundleIdentifierKey, bundleIdentifier },
                { KTNotificationEnabledKey, enabled } }));
        device.waitUntilIdle();
    }

    void add(const std::string& bundleIdentifier, KTLocalNotificationService::List list)
    {
        bool completed = false;
        service->addScheduledLocalNotifications(list, bundleIdentifier, [&] { completed = true; });
        device.waitUntilIdle();
        EXPECT_TRUE(completed) << "completions are called, also for unknown applications";
    }

    std::shared_ptr<KTLocalNotificationClient> serviceClient(const std::string& bundleIdentifier)
    {
        return service->queue()->sync(
            [&] { return service->_queue_clientForBundleIdentifier(bundleIdentifier); });
    }

    bool cached(const std::string& bundleIdentifier)
    {
        return serviceClient(bundleIdentifier)->hasCachedLocalNotifications();
    }

    size_t changesFor(const std::string& bundleIdentifier)
    {
        return std::count_if(changes.begin(), changes.end(),
            [&](auto& info) { return info[KTBundleIdentifierKey] == Value(bundleIdentifier); });
    }

    std::shared_ptr<KTLocalNotificationService> service;
};

TEST_F(LocalService, UninstallingDisarmsAndKeepsThePersistedSchedule)
{
    for (auto identifier : { alarm, diary, quiet })
        EXPECT_NE(serviceClient(identifier), nullptr) << identifier;
    auto before = serviceClient(alarm);
    service->applicationsDidInstall({ device.platform().workspace->applicationProxyForIdentifier(alarm) });
    device.waitUntilIdle();
    EXPECT_EQ(serviceClient(alarm), before) << "an installed application keeps its client";

    setEnabled(alarm, true);
    add(alarm, { dated(60, "wake up") });
    EXPECT_EQ(device.clock().pendingTimerCount(), 1u);
    ASSERT_TRUE(device.applicationWorkspace().uninstall(alarm));
    device.waitUntilIdle();
    EXPECT_EQ(serviceClient(alarm), nullptr);
    EXPECT_EQ(device.clock().pendingTimerCount(), 0u);
    device.advance(120);
    EXPECT_TRUE(fired.empty()) << "an uninstalled application fires nothing";
    EXPECT_EQ(storedList().length(), 1u);
}

TEST_F(LocalService, EnablingTwiceRearmsOnce)
{
    add(alarm, { dated(600) });
    EXPECT_EQ(device.clock().pendingTimerCount(), 0u) << "notifications are off";
    size_t before = changesFor(alarm);
    setEnabled(alarm, true);
    setEnabled(alarm, true);
    EXPECT_EQ(changesFor(alarm), before + 1);
    EXPECT_EQ(device.clock().pendingTimerCount(), 1u);
    setEnabled("", false);
    setEnabled(alarm, false);
    EXPECT_EQ(device.clock().pendingTimerCount(), 0u);
}

TEST_F(LocalService, SystemEventsFanOutToTheClients)
{
    setEnabled(alarm, true);
    setEnabled(diary, true);
    add(alarm, { dated(600) });
    add(diary, { dated(900) });
    changes.clear();
    device.systemNotificationCenter().postNotification("SignificantTimeChangeNotification");
    device.waitUntilIdle();
    EXPECT_EQ(changesFor(alarm), 1u);
    EXPECT_EQ(changesFor(diary), 1u);
    EXPECT_EQ(changesFor(quiet), 0u) << "a client without a timer ignores it";

    device.platform().notificationCenter->postNotification(CurrentLocaleDidChangeNotification);
    device.waitUntilIdle();
    EXPECT_EQ(changesFor(alarm), 2u);

    auto alarmProcess = device.processManager().launch(alarm);
    auto diaryProcess = device.processManager().launch(diary);
    service->scheduledLocalNotificationsForBundleIdentifier(alarm);
    service->scheduledLocalNotificationsForBundleIdentifier(diary);
    ASSERT_TRUE(cached(alarm) && cached(diary));
    device.processManager().terminate(alarmProcess->pid());
    device.waitUntilIdle();
    EXPECT_FALSE(cached(alarm));
    EXPECT_TRUE(cached(diary)) << "only the exiting application's cache goes";
    device.platform().notificationCenter->postNotification(ApplicationDidReceiveMemoryWarningNotification);
    device.waitUntilIdle();
    EXPECT_FALSE(cached(diary));
}

TEST_F(LocalService, QueriesAnswerThroughTheQueue)
{
    setEnabled(alarm, true);
    add(alarm, { dated(60, "a"), dated(30, "b") });
    auto list = service->scheduledLocalNotificationsForBundleIdentifier(alarm);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]->alertBody(), "b");

    auto request = std::make_shared<KTSNotificationScheduleFetchRequest>();
    request->setEndDate(device.clock().now().addingTimeInterval(45));
    std::shared_ptr<KTSNotificationSchedule> answer;
    service->scheduleForBundleIdentifier(alarm, request, [&](auto schedule) { answer = schedule; });
    bool unknownAnswered = false;
    service->scheduleForBundleIdentifier("com.example.unknown", request, [&](auto schedule) {
        unknownAnswered = true;
        EXPECT_EQ(schedule, nullptr);
    });
    device.waitUntilIdle();
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->count(), 1u);
    EXPECT_TRUE(unknownAnswered);
    add("com.example.unknown", { dated(60) });
    EXPECT_TRUE(service->scheduledLocalNotificationsForBundleIdentifier("com.example.unknown").empty());

    bool cancelled = false;
    service->cancelScheduledLocalNotifications({ list[0] }, alarm, [&] { cancelled = true; });
    service->snoozeLocalNotifications({ list[1] }, alarm);
    device.waitUntilIdle();
    EXPECT_TRUE(cancelled);
    auto after = service->scheduledLocalNotificationsForBundleIdentifier(alarm);
    ASSERT_EQ(after.size(), 2u);
    EXPECT_TRUE(after[1]->isFromSnooze());
}

TEST_F(LocalService, RegionMonitoringDrivenByTheHostThroughTheExportedFunctions)
{
    TesselSetRegionMonitoringAuthorization(alarm, LocationManager::AuthorizedAlways);
    TesselSetRegionMonitoringAuthorization(diary, LocationManager::AuthorizedWhenInUse);
    TesselSetRegionMonitoringAuthorization(diary, 5);
    TesselSetRegionMonitoringAuthorization(nullptr, LocationManager::AuthorizedAlways);
    EXPECT_TRUE(device.systemLog().contains("authorization 5 for com.example.diary refused"));
    EXPECT_TRUE(KTIsAuthorizedForRegionMonitoring(alarm));
    EXPECT_TRUE(KTIsAuthorizedForRegionMonitoring(diary)) << "a refused status leaves the last one";
    EXPECT_FALSE(KTIsAuthorizedForRegionMonitoring(quiet));
    EXPECT_FALSE(KTIsAuthorizedForRegionMonitoring("com.example.unknown"));
    EXPECT_FALSE(KTIsAuthorizedForRegionMonitoring(nullptr));

    setEnabled(alarm, true);
    auto atHome = std::make_shared<LocalNotification>();
    atHome->setRegion(std::make_shared<Region>("home", 52.5, 13.4, 100));
    add(alarm, { atHome });
    TesselReportRegionCrossing("elsewhere", true);
    TesselReportRegionCrossing(nullptr, true);
    device.waitUntilIdle();
    EXPECT_TRUE(fired.empty());
    TesselReportRegionCrossing("home", true);
    device.waitUntilIdle();
    ASSERT_EQ(fired.size(), 1u);
    EXPECT_EQ(fired[0]->region()->identifier(), "home");

    KTTriggerLocationArrow(alarm);
    KTTriggerLocationArrow(nullptr);
    device.waitUntilIdle();
    EXPECT_EQ(device.locationServices().locationIndicatorCount(), 1);
}

// Schedules persisted by an earlier run arm at start only for applications
// whose notifications the user left on.
TEST(LocalServiceStart, ClientsStartWithTheUsersSettings)
{
    SimulatedDevice device;
    LocalNotification::registerArchivableClasses();
    struct {
        const char* identifier;
        bool allowed;
    } applications[] = { { "com.example.on", true }, { "com.example.off", false } };
    for (auto& application : applications) {
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = application.identifier }));
        SectionInfo section;
        section.sectionID = application.identifier;
        section.allowsNotifications = application.allowed;
        section.pushSettings = 7 | 56;
        device.bulletinService().setSectionInfo(section);
        auto notification = std::make_shared<LocalNotification>();
        notification->setFireDate(device.clock().now().addingTimeInterval(600));
        ASSERT_TRUE(ApplicationDataStore::storeForApplication(application.identifier)
                        ->setArchivedObject(Value(Value::Array { Value(notification) }),
                            KTApplicationDataStoreLocalNotificationsKey));
    }

    auto service = KTLocalNotificationService::sharedInstance();
    device.waitUntilIdle();
    for (auto& application : applications) {
        bool enabled = service->queue()->sync([&] {
            return service->_queue_clientForBundleIdentifier(application.identifier)
                ->userNotificationsEnabled();
        });
        EXPECT_EQ(enabled, application.allowed) << application.identifier;
    }
    EXPECT_EQ(device.clock().pendingTimerCount(), 1u);
    device.advance(600);
    EXPECT_EQ(device.clock().pendingTimerCount(), 0u);
}

} // namespace
