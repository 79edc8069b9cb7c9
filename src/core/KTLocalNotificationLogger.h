#pragma once

#include "core/KTLevelLogger.h"

#include <memory>

namespace tessel {

// Diagnostics of the local notification subsystem, gated by KTLocalNotificationLoggingLevel.
class KTLocalNotificationLogger final : public KTLevelLogger {
public:
    KTLocalNotificationLogger();

    std::string name() const override { return "KTLocalNotificationLog"; }
    std::string logPreferenceName() const override { return "KTLocalNotificationLogging"; }

    // The logger registered at start, if any; log sites write through it.
    static std::shared_ptr<KTLocalNotificationLogger> registeredLogger();
    static void setRegisteredLogger(std::shared_ptr<KTLocalNotificationLogger> logger);
};

} // namespace tessel
