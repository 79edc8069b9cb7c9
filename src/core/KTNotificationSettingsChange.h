#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string>

namespace tessel {

// What KTNotificationSettingsDidChangeNotification carries: whose section
// settings changed, and whether its notifications now reach the user.
struct KTNotificationSettingsChange {
    std::string bundleIdentifier;
    bool enabled = false;

    Value userInfo() const;
    // None when the user info names no application; observers then change nothing.
    static std::optional<KTNotificationSettingsChange> fromUserInfo(const Value& userInfo);
};

} // namespace tessel
