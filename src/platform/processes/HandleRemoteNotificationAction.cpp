#include "platform/processes/HandleRemoteNotificationAction.h"

#include "platform/foundation/Format.h"

namespace tessel {

HandleRemoteNotificationAction::HandleRemoteNotificationAction(Value payload, Handler handler)
    : _payload(std::move(payload))
    , _handler(std::move(handler))
{
}

std::string HandleRemoteNotificationAction::description() const
{
    return format(
        "<HandleRemoteNotificationAction payload=%@ handler=%s>", _payload, _handler ? "YES" : "NO");
}

} // namespace tessel
