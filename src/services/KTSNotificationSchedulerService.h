#pragma once

#include <string>

namespace tessel {

// The scheduler service's two interfaces: the one its listener exports
// (KTSNotificationSchedulerServerProtocol) and the one an observing client exports
// back (KTSNotificationSchedulerClientProtocol). On D-Bus they are the interfaces of
// src/services/dbus/com.tamber.Tessel.Scheduler1.xml at objectPath.
class KTSNotificationSchedulerService {
public:
    static const std::string& serverInterface();
    static const std::string& clientInterface();
    static const std::string& objectPath();
};

} // namespace tessel
