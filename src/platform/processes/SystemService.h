#pragma once

#include "platform/foundation/Value.h"

#include <string>

namespace tessel {

// Device-wide services of the host shell.
class SystemService {
public:
    virtual ~SystemService() = default;

    // A number sets the application's icon badge, null removes it.
    virtual void setBadgeValue(const Value& value, const std::string& bundleID) = 0;
};

} // namespace tessel
