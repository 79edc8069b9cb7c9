#pragma once

#include "core/KTLevelLogger.h"

#include <memory>

namespace tessel {

// Diagnostics of the remote notification subsystem, gated by KTRemoteNotificationLoggingLevel.
class KTRemoteNotificationLogger final : public KTLevelLogger {
public:
    KTRemoteNotificationLogger();

    std::string name() const override { return "KTRemoteNotificationLog"; }
    std::string logPreferenceName() const override { return "KTRemoteNotificationLogging"; }

    // The logger registered at start, if any; log sites write through it.
    static std::shared_ptr<KTRemoteNotificationLogger> registeredLogger();
    static void setRegisteredLogger(std::shared_ptr<KTRemoteNotificationLogger> logger);
};

} // namespace tessel
