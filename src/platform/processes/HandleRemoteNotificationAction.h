#pragma once

#include "platform/foundation/Value.h"
#include "platform/processes/ProcessAction.h"

#include <functional>

namespace tessel {

// Hands a push payload to its application in the foreground. The handler, when
// there is one, hears whether the application took it.
class HandleRemoteNotificationAction : public ProcessAction {
public:
    using Handler = std::function<void(bool handled)>;

    explicit HandleRemoteNotificationAction(Value payload, Handler handler = {});

    const Value& payload() const { return _payload; }
    const Handler& handler() const { return _handler; }
    std::string description() const override;

private:
    const Value _payload;
    const Handler _handler;
};

} // namespace tessel
