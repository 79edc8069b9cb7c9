#pragma once

#include "platform/records/LocalNotification.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tessel {

// What the scheduler service answers; the listener exports an object of it.
// A refused request is dropped: its callback is never called.
class KTSNotificationSchedulerServerProtocol {
public:
    using List = std::vector<std::shared_ptr<LocalNotification>>;
    using Completion = std::function<void()>;
    using ListResult = std::function<void(List)>;
    using ScheduleResult = std::function<void(std::shared_ptr<KTSNotificationSchedule>)>;

    virtual ~KTSNotificationSchedulerServerProtocol() = default;

    virtual void scheduledLocalNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, ListResult result)
        = 0;
    virtual void scheduleForBundleIdentifier(const std::string& bundleIdentifier,
        std::shared_ptr<KTSNotificationScheduleFetchRequest> fetchRequest, ScheduleResult result)
        = 0;
    virtual void setScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion)
        = 0;
    virtual void addScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion)
        = 0;
    virtual void cancelScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion)
        = 0;
    // An empty completion is the form without one.
    virtual void snoozeScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion)
        = 0;
    virtual void setObservingScheduledLocalNotifications(
        bool observing, const std::string& bundleIdentifier, Completion completion)
        = 0;
};

} // namespace tessel
