#pragma once

#include <initializer_list>
#include <string>

namespace tessel {

// The rules both services apply to the connection whose request is being
// handled (IpcConnection::currentConnection()).
class KTCurrentCaller {
public:
    // The caller is the application itself, or holds one of the entitlements.
    static bool actsFor(const std::string& bundleIdentifier, std::initializer_list<const char*> entitlements);
    static bool holdsAny(std::initializer_list<const char*> entitlements);
    // Logs why and drops the request: its result is never called. Always false.
    static bool refuse(const std::string& reason);
};

} // namespace tessel
