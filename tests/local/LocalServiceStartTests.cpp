#include "local/KTLocalNotificationService.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/bulletins/SectionInfo.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "platform/sim/SimulatedDevice.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

using namespace tessel;

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
