#pragma once

#include <string>

namespace tessel {

// The registrar service's two interfaces: the one its listener exports
// (KTSNotificationRegistrarServerProtocol) and the one an observing client exports
// back (KTSNotificationRegistrarClientProtocol). On D-Bus they are the interfaces of
// src/services/dbus/com.tamber.Tessel.Registrar1.xml at objectPath.
class KTSNotificationRegistrarService {
public:
    static const std::string& serverInterface();
    static const std::string& clientInterface();
    static const std::string& objectPath();
};

} // namespace tessel
