#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <string_view>

namespace tessel {

// Who is calling: the process on the other side of a request. The IPC layer
// fills in the pid it got from the transport, never one the caller claims.
struct AuditToken {
    int32_t pid = 0;
};

// The entitlement of the calling application: its running process is looked
// up by pid and the value read from its installed bundle. Null when the
// process or the application is unknown or the key is missing.
Value entitlementValueForAuditToken(const AuditToken& token, std::string_view key);

} // namespace tessel
