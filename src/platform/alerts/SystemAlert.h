#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tessel {

// Keys of the dictionary an alert is created with.
inline constexpr const char* SystemAlertHeaderKey = "AlertHeader";
inline constexpr const char* SystemAlertMessageKey = "AlertMessage";
inline constexpr const char* SystemAlertDefaultButtonTitleKey = "DefaultButtonTitle";
inline constexpr const char* SystemAlertAlternateButtonTitleKey = "AlternateButtonTitle";

// Response values: the default button, the alternate button; anything else
// means the alert ended otherwise.
inline constexpr int64_t SystemAlertDefaultResponse = 0;
inline constexpr int64_t SystemAlertAlternateResponse = 1;
inline constexpr int64_t SystemAlertCancelResponse = 3;

// Alert flags and levels.
inline constexpr uint32_t SystemAlertNoDefaultButtonFlag = 32;
inline constexpr int SystemAlertStopLevel = 0;

// A modal alert on screen. Its response handler runs once, on the main queue.
class SystemAlert {
public:
    using ResponseHandler = std::function<void(SystemAlert& alert, int64_t response)>;
    virtual ~SystemAlert() = default;
    virtual void setResponseHandler(ResponseHandler handler) = 0;
};

// The platform's modal alerts.
class SystemAlertService {
public:
    virtual ~SystemAlertService() = default;
    // Shows an alert; null with a reason when it cannot be created. A timeout of
    // 0 waits for the user however long it takes.
    virtual std::shared_ptr<SystemAlert> createAlert(
        double timeout, int level, uint32_t flags, const Value& dictionary, std::string* error)
        = 0;
};

} // namespace tessel
