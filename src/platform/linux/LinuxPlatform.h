#pragma once

#include "platform/Platform.h"

#include <memory>
#include <string>
#include <vector>

namespace tessel {

// The platform of a real Linux machine, for the daemon: Library under
// $TESSEL_LIBRARY_DIR or the user's data directory, the real-time clock, syslog.
class LinuxPlatform {
public:
    // Empty fields take the defaults of make().
    struct Options {
        std::string libraryDirectory;
        std::string preferencesDirectory;
        std::string logsDirectory;
        std::string applicationsDirectory;
        std::vector<std::string> systemApplicationsDirectories;
        // A D-Bus address; empty for the session bus.
        std::string busAddress;
        std::shared_ptr<SystemLog> systemLog;
    };

    static std::shared_ptr<Platform> make();
    static std::shared_ptr<Platform> make(Options options);
};

} // namespace tessel
