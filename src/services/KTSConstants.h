#pragma once

namespace tessel {

// Service names clients look up to reach the server.
extern const char* const KTSRegistrarServiceName; // registrations and settings
extern const char* const KTSSchedulerServiceName; // local notification scheduling
// Entitlements a client process must hold to use the services above on behalf
// of applications other than its own.
extern const char* const KTSRegistrarEntitlementName;
extern const char* const KTSSchedulerEntitlementName;

} // namespace tessel
