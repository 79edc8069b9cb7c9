#pragma once

#include "platform/logging/SystemLog.h"

#include <cstdio>
#include <mutex>

namespace tessel {

// One line per message on a stream (standard error for a daemon in a
// terminal): the local time, the priority and the message.
class StreamSystemLog final : public SystemLog {
public:
    explicit StreamSystemLog(std::FILE* stream = stderr);
    void log(LogPriority priority, std::string_view message) override;

private:
    std::FILE* const _stream;
    std::mutex _lock;
};

} // namespace tessel
