#pragma once

#include <string_view>

namespace tessel {

enum class LogPriority { Error, Warning, Notice, Info, Debug };

// The machine's plain log, one message per call.
class SystemLog {
public:
    virtual ~SystemLog();
    virtual void log(LogPriority priority, std::string_view message) = 0;
};

} // namespace tessel
