#pragma once

#include <string>

namespace tessel {

// The daemon's control service, for tesselctl and administration tools: the
// interface of src/services/dbus/com.tamber.Tessel.Control1.xml, exported as
// ControlServerProtocol.
class ControlService {
public:
    static constexpr const char* serviceName = "com.tamber.Tessel.Control";
    // Every request but the status needs it in the caller's manifest.
    static constexpr const char* entitlement = "com.tamber.tessel.control";

    static const std::string& serverInterface();
    static const std::string& objectPath();
};

} // namespace tessel
