#pragma once

#include <optional>
#include <string>

namespace tessel {

// What tesseld was asked to do, from its command line and environment.
struct DaemonOptions {
    enum class Action { Run, Help, Version };
    Action action = Action::Run;
    // Empty: the XDG defaults (see DaemonPaths).
    std::string libraryDirectory;
    std::string applicationsDirectory;
    std::string systemApplicationsDirectory;
    // "session", "system" or a D-Bus address.
    std::string bus = "session";
    bool simulate = false;

    // Absent, with error set, for a command line that makes no sense.
    static std::optional<DaemonOptions> parse(int argc, const char* const* argv, std::string& error);
    static const char* helpText();
};

} // namespace tessel
