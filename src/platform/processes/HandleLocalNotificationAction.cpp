#include "platform/processes/HandleLocalNotificationAction.h"

#include "platform/foundation/Format.h"
#include "platform/records/LocalNotification.h"

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
