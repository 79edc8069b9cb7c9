#pragma once

#include "platform/foundation/Value.h"

#include <string>

namespace tessel {

// What the registrar tells an observing client.
class KTSNotificationRegistrarClientProtocol {
public:
    virtual ~KTSNotificationRegistrarClientProtocol() = default;
    virtual void didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier) = 0;
};

} // namespace tessel
