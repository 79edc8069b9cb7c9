#pragma once

#include "platform/processes/ProcessAction.h"

#include <functional>
#include <memory>

namespace tessel {

class LocalNotification;

// Hands a fired local notification to its application in the foreground. The
// handler, when there is one, hears whether the application took it.
class HandleLocalNotificationAction : public ProcessAction {
public:
    using Handler = std::function<void(bool handled)>;

    HandleLocalNotificationAction(std::shared_ptr<LocalNotification> notification, Handler handler = {});

    const std::shared_ptr<LocalNotification>& localNotification() const { return _localNotification; }
    const Handler& handler() const { return _handler; }
    std::string description() const override;

private:
    const std::shared_ptr<LocalNotification> _localNotification;
    const Handler _handler;
};

} // namespace tessel
