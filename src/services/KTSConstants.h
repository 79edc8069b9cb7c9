#pragma once

namespace tessel {

// Service names clients look up to reach the server (well-known bus names on D-Bus).
extern const char* const KTSNotificationRegistrarServiceName; // settings, badges, tokens
extern const char* const KTSNotificationSchedulerServiceName; // local notification scheduling
// Entitlements an application's manifest grants: acting for applications other
// than its own, and administering remote notification settings.
extern const char* const KTSNotificationRegistrarProxyEntitlementName;
extern const char* const KTSNotificationRegistrarRemoteNotificationSettingsEntitlementName;
extern const char* const KTSNotificationSchedulerProxyEntitlementName;

} // namespace tessel
