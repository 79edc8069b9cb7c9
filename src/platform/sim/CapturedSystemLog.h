#pragma once

#include "platform/logging/SystemLog.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

// Keeps every message for tests to inspect. With TESSEL_ECHO_LOG set in the
// environment (when constructed), messages are also copied to stderr.
class CapturedSystemLog final : public SystemLog {
public:
    struct Entry {
        LogPriority priority;
        std::string message;
    };

    CapturedSystemLog();
    void log(LogPriority priority, std::string_view message) override;

    std::vector<std::string> lines() const;
    std::vector<Entry> entries() const;
    bool contains(std::string_view substring) const;
    // Lines that contain the substring.
    size_t count(std::string_view substring) const;
    void clear();

private:
    const bool _echo;
    mutable std::mutex _lock;
    std::vector<Entry> _entries;
};

} // namespace tessel
