#pragma once

#include "core/KTLocalNotificationLogger.h"
#include "local/KTLocalNotificationClient.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/logging/FileLogManager.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tessel::testing_support {

// A device with one installed application and its client on a service queue,
// local logging on, and every change and fire notice recorded.
class LocalClientTest : public ::testing::Test {
protected:
    static constexpr const char* app = "com.example.alarm";
    using List = KTLocalNotificationClient::LocalNotificationList;
    using Strings = std::vector<std::string>;

    template <typename F> auto onQueue(F&& work) { return queue->sync(std::forward<F>(work)); }

    void SetUp() override
    {
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app }));
        auto logger = std::make_shared<KTLocalNotificationLogger>();
        device.platform().fileLogManager->registerLogger(logger);
        KTLocalNotificationLogger::setRegisteredLogger(logger);
        logger->_setLevel(KTLevelLogger::levelOn);
        device.platform().notificationCenter->addObserver(
            this, "", nullptr, [this](const Notification& note) {
                if (note.name == KTLocalNotificationDidFireNotification)
                    fired.push_back(
                        note.userInfo[KTLocalNotificationsKey].at(0).objectAs<LocalNotification>());
                else if (note.name == KTLocalNotificationsDidChangeNotification)
                    changes.push_back(note.userInfo);
            });
    }

    void TearDown() override
    {
        onQueue([&] { client.reset(); });
        device.platform().notificationCenter->removeObserver(this);
    }

    KTLocalNotificationClient& makeClient(bool system = false, bool required = false, bool enabled = true)
    {
        onQueue([&] {
            client.reset();
            client = KTLocalNotificationClient::create(app, system, required, enabled, queue);
        });
        return *client;
    }

    Date now() { return device.clock().now(); }

    std::shared_ptr<LocalNotification> dated(double secondsFromNow, std::string body = "body",
        CalendarUnit repeat = CalendarUnit::None, int32_t repeats = LocalNotificationInfiniteRepeatCount)
    {
        auto made = std::make_shared<LocalNotification>();
        made->setFireDate(now().addingTimeInterval(secondsFromNow));
        made->setAlertBody(std::move(body));
        made->setRepeatInterval(repeat);
        made->setTotalRepeatCount(repeats);
        return made;
    }

    std::shared_ptr<LocalNotification> regional(
        const std::string& identifier, const std::string& body = {}, bool once = false)
    {
        auto made = std::make_shared<LocalNotification>();
        auto region = std::make_shared<Region>();
        region->setIdentifier(identifier);
        made->setRegion(region);
        made->setAlertBody(body.empty() ? "at " + identifier : body);
        made->setRegionTriggersOnce(once);
        return made;
    }

    void schedule(const List& list, bool replace = false)
    {
        onQueue([&] { client->scheduleLocalNotifications(list, replace); });
    }

    List scheduled()
    {
        return onQueue([&] { return client->scheduledLocalNotifications(); });
    }

    std::vector<std::string> bodies(const List& list)
    {
        std::vector<std::string> result;
        for (auto& notification : list)
            result.push_back(notification->alertBody());
        return result;
    }

    // What the data store holds, without the client's filtering.
    Value storedList()
    {
        return ApplicationDataStore::storeForApplication(app)->archivedObjectForKey(
            KTApplicationDataStoreLocalNotificationsKey);
    }

    size_t deliveredCount()
    {
        return KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app).length();
    }

    bool logged(const std::string& text)
    {
        auto lines = device.fileLogLines("KTLocalNotificationLog");
        return std::any_of(
            lines.begin(), lines.end(), [&](auto& line) { return line.find(text) != std::string::npos; });
    }

    SimulatedDevice device;
    std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tamber.KTLocalNotificationService");
    std::shared_ptr<KTLocalNotificationClient> client;
    std::vector<std::shared_ptr<LocalNotification>> fired;
    std::vector<Value> changes;
};

} // namespace tessel::testing_support
