#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tessel {

// Where power accounting learns about wakes the server causes. The host installs
// the handlers; without them the posts do nothing.
using KTSLocalNotificationFiredPowerHandler
    = std::function<void(int32_t pid, const std::string& bundleIdentifier)>;
using KTSPushWakePowerHandler
    = std::function<void(int32_t pid, const std::string& bundleIdentifier, const std::string& topic)>;

// Thread-safe; an empty function removes the handler.
void KTSSetLocalNotificationFiredPowerHandler(KTSLocalNotificationFiredPowerHandler handler);
void KTSSetPushWakePowerHandler(KTSPushWakePowerHandler handler);

// A local notification woke the application with this process identifier.
void _KTPostLocalNotificationFiredPowerNotification(int32_t pid, const std::string& bundleIdentifier);
// A push message on topic woke the application with this process identifier.
void _KTPostPushWakePowerNotification(
    int32_t pid, const std::string& bundleIdentifier, const std::string& topic);

} // namespace tessel
