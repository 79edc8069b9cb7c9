#pragma once

#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <string>

namespace tessel {

// One message as the push service handed it over. The payload comes from the
// network: nothing in it has been checked.
struct IncomingPushMessage {
    std::string topic;
    Value userInfo;
    int64_t priority = 0;
    // When the message was sent.
    Date timestamp;
};

} // namespace tessel
