#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <functional>
#include <string>

namespace tessel {

// What the control service's listener exports. Answers are property-list
// values; a non-empty error says why the request could not be done (an
// unknown application, a malformed change) and the value is then null.
class ControlServerProtocol {
public:
    using Answer = std::function<void(Value value, std::string error)>;

    virtual ~ControlServerProtocol() = default;

    virtual void status(Answer answer) = 0;
    virtual void applications(Answer answer) = 0;
    virtual void sectionSettings(const std::string& bundleIdentifier, Answer answer) = 0;
    virtual void updateSectionSettings(const std::string& bundleIdentifier, const Value& changes, Answer answer)
        = 0;
    virtual void deliveredNotifications(const std::string& bundleIdentifier, Answer answer) = 0;
    virtual void clearDeliveredNotifications(const std::string& bundleIdentifier, Answer answer) = 0;
    // Answers whether a connection took the message.
    virtual void injectPushMessage(const std::string& environment, const std::string& topic,
        const Value& payload, int64_t priority, Answer answer)
        = 0;
    virtual void requestPushToken(const std::string& bundleIdentifier, const std::string& environment, Answer answer)
        = 0;
};

} // namespace tessel
