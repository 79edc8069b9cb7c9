#include "platform/linux/StreamSystemLog.h"

#include <chrono>
#include <ctime>

namespace tessel {

namespace {

    const char* priorityName(LogPriority priority)
    {
        switch (priority) {
        case LogPriority::Error:
            return "error";
        case LogPriority::Warning:
            return "warning";
        case LogPriority::Notice:
            return "notice";
        case LogPriority::Info:
            return "info";
        case LogPriority::Debug:
            return "debug";
        }
        return "notice";
    }

} // namespace

StreamSystemLog::StreamSystemLog(std::FILE* stream)
    : _stream(stream)
{
}

void StreamSystemLog::log(LogPriority priority, std::string_view message)
{
    auto now = std::chrono::system_clock::now();
    auto seconds = std::chrono::system_clock::to_time_t(now);
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local {};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%H:%M:%S", &local);
    std::lock_guard guard(_lock);
    std::fprintf(_stream, "%s.%03lld %s: %.*s\n", stamp, static_cast<long long>(millis), priorityName(priority),
        static_cast<int>(message.size()), message.data());
    std::fflush(_stream);
}

} // namespace tessel
