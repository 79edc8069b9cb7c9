#include "local/KTLocalNotificationService.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/events/NotificationCenter.h"
#include "platform/location/LocationServices.h"
#include "platform/location/Region.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

constexpr const char* alarm = "com.example.alarm";
constexpr const char* diary = "com.example.diary";
constexpr const char* quiet = "com.example.quiet";

class LocalService : public testing::Test {
protected:
    void SetUp() override
    {
        for (auto identifier : { alarm, diary, quiet })
            ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = identifier }));
        device.platform().notificationCenter->addObserver(
            this, "", nullptr, [this](const Notification& note) {
                auto bundleIdentifier = note.userInfo[KTBundleIdentifierKey].stringValue();
                if (note.name == KTLocalNotificationDidFireNotification)
                    fired.push_back(bundleIdentifier);
                else if (note.name == KTLocalNotificationsDidChangeNotification)
                    changed.push_back(bundleIdentifier);
            });
        service = KTLocalNotificationService::sharedInstance();
        device.waitUntilIdle();
    }

    void TearDown() override { device.platform().notificationCenter->removeObserver(this); }

    void setEnabled(const std::string& bundleIdentifier, bool enabled)
    {
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value(Value::Dictionary { { KTNotificationBundleIdentifierKey, bundleIdentifier },
                { KTNotificationEnabledKey, enabled } }));
        device.waitUntilIdle();
    }

    std::shared_ptr<LocalNotification> in(double seconds, std::string body = "body")
    {
        auto n = std::make_shared<LocalNotification>();
        n->setFireDate(device.clock().now().addingTimeInterval(seconds));
        n->setAlertBody(std::move(body));
        return n;
    }

    void add(const std::string& bundleIdentifier, KTLocalNotificationService::List list)
    {
        bool completed = false;
        service->addScheduledLocalNotifications(list, bundleIdentifier, [&] { completed = true; });
        device.waitUntilIdle();
        EXPECT_TRUE(completed) << "completions are called, also for unknown applications";
    }

    std::shared_ptr<KTLocalNotificationClient> client(const std::string& bundleIdentifier)
    {
        return service->queue()->sync(
            [&] { return service->_queue_clientForBundleIdentifier(bundleIdentifier); });
    }

    bool cached(const std::string& bundleIdentifier)
    {
        return service->queue()->sync([&] {
            return service->_queue_clientForBundleIdentifier(bundleIdentifier)->hasCachedLocalNotifications();
        });
    }

    size_t changesFor(const std::string& bundleIdentifier)
    {
        return std::count(changed.begin(), changed.end(), bundleIdentifier);
    }

    SimulatedDevice device;
    std::shared_ptr<KTLocalNotificationService> service;
    std::vector<std::string> fired;
    std::vector<std::string> changed;
};

TEST_F(LocalService, EveryInstalledApplicationGetsOneClientForItsLife)
{
    for (auto identifier : { alarm, diary, quiet })
        EXPECT_NE(client(identifier), nullptr) << identifier;
    auto before = client(alarm);
    service->applicationsDidInstall({ device.platform().workspace->applicationProxyForIdentifier(alarm) });
    device.waitUntilIdle();
    EXPECT_EQ(client(alarm), before) << "an installed application keeps its client";

    add("com.example.unknown", { in(60) });
    EXPECT_TRUE(service->scheduledLocalNotificationsForBundleIdentifier("com.example.unknown").empty());
}

TEST_F(LocalService, UninstallingDisarmsAndKeepsThePersistedSchedule)
{
    setEnabled(alarm, true);
    add(alarm, { in(60, "wake up") });
    EXPECT_EQ(device.clock().pendingTimerCount(), 1u);
    ASSERT_TRUE(device.applicationWorkspace().uninstall(alarm));
    device.waitUntilIdle();
    EXPECT_EQ(client(alarm), nullptr);
    EXPECT_EQ(device.clock().pendingTimerCount(), 0u);
    device.advance(120);
    EXPECT_TRUE(fired.empty()) << "an uninstalled application fires nothing";
    EXPECT_EQ(ApplicationDataStore::storeForApplication(alarm)
                  ->archivedObjectForKey(KTApplicationDataStoreLocalNotificationsKey)
                  .length(),
        1u);
}

TEST_F(LocalService, EnablingTwiceRearmsOnce)
{
    add(alarm, { in(600) });
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
    add(alarm, { in(600) });
    add(diary, { in(900) });
    changed.clear();
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
    add(alarm, { in(60, "a"), in(30, "b") });
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
    EXPECT_EQ(fired, std::vector<std::string> { alarm });

    KTTriggerLocationArrow(alarm);
    KTTriggerLocationArrow(nullptr);
    device.waitUntilIdle();
    EXPECT_EQ(device.locationServices().locationIndicatorCount(), 1);
}

} // namespace
