#pragma once

#include <functional>
#include <string>

namespace tessel {

struct DaemonOptions;

// Where the daemon keeps what, from its options and the XDG base directories.
struct DaemonPaths {
    std::string library;
    std::string preferences;
    std::string logs;
    std::string applications;
    std::string systemApplications;

    // getenv is the environment to read; executable the daemon's own path.
    static DaemonPaths resolve(const DaemonOptions& options, const std::function<std::string(const char*)>& getenv,
        const std::string& executable);
};

} // namespace tessel
