#pragma once

#include "core/KTLevelLogger.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

// Diagnostics of one notification subsystem, gated by its exported level
// variable. Each subsystem's header names its log and preference.
template <int32_t& LevelVariable> class KTNotificationLogger final : public KTLevelLogger {
public:
    KTNotificationLogger()
        : KTLevelLogger(LevelVariable)
    {
    }

    std::string name() const override;
    std::string logPreferenceName() const override;

    // The logger registered at start, if any; log sites write through it.
    static std::shared_ptr<KTNotificationLogger> registeredLogger() { return registered().load(); }
    static void setRegisteredLogger(std::shared_ptr<KTNotificationLogger> logger)
    {
        registered().store(std::move(logger));
    }

private:
    static std::atomic<std::shared_ptr<KTNotificationLogger>>& registered()
    {
        static std::atomic<std::shared_ptr<KTNotificationLogger>> logger;
        return logger;
    }
};

} // namespace tessel
