#pragma once

#include "platform/records/LocalNotification.h"

#include <memory>
#include <string>
#include <vector>

namespace tessel {

// What the scheduler tells an observing client.
class KTSNotificationSchedulerClientProtocol {
public:
    using List = std::vector<std::shared_ptr<LocalNotification>>;

    virtual ~KTSNotificationSchedulerClientProtocol() = default;
    virtual void didChangeScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier)
        = 0;
    virtual void didFireLocalNotifications(const List& notifications, const std::string& bundleIdentifier)
        = 0;
};

} // namespace tessel
