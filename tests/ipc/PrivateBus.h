#pragma once

#include "ipc/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <string>

namespace tessel {

// A bus daemon of the test's own on a socket in a fresh directory; it is
// stopped, and the directory removed, when the test ends.
class PrivateBus {
public:
    PrivateBus()
        // Its complaints about descriptor limits it may not raise here are noise.
        : _daemon({ "/usr/bin/dbus-daemon", "--session", "--address=unix:dir=" + _directory.path(),
                      "--nofork", "--print-address" },
            {}, true)
    {
        auto address = _daemon.readLine(std::chrono::seconds(10));
        if (!address || address->rfind("unix:", 0) != 0)
            ADD_FAILURE() << "the bus daemon did not start";
        else
            _address = *address;
    }

    // Empty when the daemon did not start.
    const std::string& address() const { return _address; }

private:
    TemporaryDirectory _directory;
    ChildProcess _daemon;
    std::string _address;
};

} // namespace tessel
