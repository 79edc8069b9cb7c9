#include "platform/HandleLocalNotificationAction.h"

#include "platform/Format.h"
#include "platform/LocalNotification.h"

namespace tessel {

HandleLocalNotificationAction::HandleLocalNotificationAction(
    std::shared_ptr<LocalNotification> notification, Handler handler)
    : _localNotification(std::move(notification))
    , _handler(std::move(handler))
{
}

std::string HandleLocalNotificationAction::description() const
{
    return format("<HandleLocalNotificationAction notification=%@ handler=%s>",
        _localNotification ? _localNotification->description() : std::string("(null)"),
        _handler ? "YES" : "NO");
}

} // namespace tessel
