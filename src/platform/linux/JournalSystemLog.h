#pragma once

#include "platform/logging/SystemLog.h"

#include <string>

namespace tessel {

// Writes to the systemd journal with the message's priority and the given
// identifier, so that `journalctl --user -u <unit> -p warning` filters it.
class JournalSystemLog final : public SystemLog {
public:
    explicit JournalSystemLog(std::string identifier);
    void log(LogPriority priority, std::string_view message) override;

    // True when standard error is the journal's stream, as for a service
    // systemd started.
    static bool isStandardErrorJournal();

private:
    const std::string _identifier;
};

} // namespace tessel
