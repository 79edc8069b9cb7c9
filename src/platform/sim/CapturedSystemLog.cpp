#include "platform/sim/CapturedSystemLog.h"

#include <cstdio>
#include <cstdlib>

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
        return "?";
    }

} // namespace

CapturedSystemLog::CapturedSystemLog()
    : _echo(getenv("TESSEL_ECHO_LOG") != nullptr)
{
}

void CapturedSystemLog::log(LogPriority priority, std::string_view message)
{
    std::lock_guard lock(_lock);
    if (_echo)
        fprintf(
            stderr, "[%s] %.*s\n", priorityName(priority), static_cast<int>(message.size()), message.data());
    _entries.push_back({ priority, std::string(message) });
}

std::vector<std::string> CapturedSystemLog::lines() const
{
    std::lock_guard lock(_lock);
    std::vector<std::string> lines;
    lines.reserve(_entries.size());
    for (const auto& entry : _entries)
        lines.push_back(entry.message);
    return lines;
}

std::vector<CapturedSystemLog::Entry> CapturedSystemLog::entries() const
{
    std::lock_guard lock(_lock);
    return _entries;
}

bool CapturedSystemLog::contains(std::string_view substring) const { return count(substring) > 0; }

size_t CapturedSystemLog::count(std::string_view substring) const
{
    std::lock_guard lock(_lock);
    size_t matches = 0;
    for (const auto& entry : _entries) {
        if (entry.message.find(substring) != std::string::npos)
            ++matches;
    }
    return matches;
}

void CapturedSystemLog::clear()
{
    std::lock_guard lock(_lock);
    _entries.clear();
}

} // namespace tessel
