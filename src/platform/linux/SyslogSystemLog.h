#pragma once

#include "platform/logging/SystemLog.h"

namespace tessel {

// The system logger under the ident "tessel" in the daemon facility.
class SyslogSystemLog final : public SystemLog {
public:
    SyslogSystemLog();
    void log(LogPriority priority, std::string_view message) override;
};

} // namespace tessel
