#pragma once

#include "DaemonOptions.h"
#include "DaemonPaths.h"
#include "InstanceLock.h"

#include <memory>
#include <string>

namespace tessel {

class ControlConnectionListener;
class Platform;
class SimulatedDevice;

// The host of the library on this machine: checks that it can run, installs
// the platform, starts the server and the control service, and stops cleanly
// on SIGTERM or SIGINT. The main queue gets the main thread.
class Daemon {
public:
    explicit Daemon(DaemonOptions options);
    ~Daemon();

    // The process's exit status when it cannot start; never returns otherwise.
    int run(const std::string& executable);

private:
    // Each answers false after saying why on standard error.
    bool resolveBusAddress();
    bool prepareLibrary();
    bool checkBusIsFree();
    std::shared_ptr<Platform> makePlatform();
    void start(std::shared_ptr<Platform> platform);
    [[noreturn]] void stopAfterSignal(int signal);

    const DaemonOptions _options;
    DaemonPaths _paths;
    std::string _busAddress;
    InstanceLock _lock;
    std::unique_ptr<SimulatedDevice> _simulatedDevice;
    std::shared_ptr<ControlConnectionListener> _control;
};

} // namespace tessel
