#pragma once

#include "platform/Platform.h"

#include <memory>

namespace tessel {

// The platform of a real Linux machine, for the daemon: Library under
// $TESSEL_LIBRARY_DIR or the user's data directory, the real-time clock, syslog.
class LinuxPlatform {
public:
    static std::shared_ptr<Platform> make();
};

} // namespace tessel
