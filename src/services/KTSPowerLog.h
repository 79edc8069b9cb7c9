#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tessel {

// Where power accounting learns about wakes the server causes. The host installs
// the handlers; without them the posts do nothing.
using KTSLocalNotificationFiredPowerHandler
    = std::function<void(int32_t pid, const std::string& bundleIdentifier)>;
using KTSRemoteNotificationReceivedPowerHandler
    = std::function<void(int32_t pid, const std::string& bundleIdentifier)>;

// Thread-safe; an empty function removes the handler.
void KTSSetLocalNotificationFiredPowerHandler(KTSLocalNotificationFiredPowerHandler handler);
void KTSSetRemoteNotificationReceivedPowerHandler(KTSRemoteNotificationReceivedPowerHandler handler);

// A local notification woke the application with this process identifier.
void _KTPostLocalNotificationFiredPowerNotification(int32_t pid, const std::string& bundleIdentifier);
// A push message for the application passed the server's checks; pid is its
// newest process, 0 for none. The misspelling is the exported name's.
void _KTPostRemoteNotificationRecievedPowerNotification(int32_t pid, const std::string& bundleIdentifier);

} // namespace tessel
