#pragma once

#include "platform/Platform.h"
#include "platform/foundation/Date.h"
#include "platform/sim/ManualClock.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tessel {

class ApplicationStateService;
class CapturedSystemLog;
class LocationServices;
class InProcessSystemNotificationCenter;
class SimulatedSystemAlerts;
class SimulatedProcessManager;
class SimulatedApplicationWorkspace;
class SimulatedBulletinService;
class SimulatedSystemService;
class SimulatedPushService;
class SimulatedDownloadManager;
class SimulatedProfileConnection;
class InProcessIpcService;

// A whole device in memory for tests and benchmarks: a temporary Library
// directory, a manual clock, captured logs and in-process notification centers.
// Creating one installs its platform; destroying it waits for the queues and
// removes the Library unless TESSEL_KEEP_SIMULATED_LIBRARY is set.
class SimulatedDevice {
public:
    explicit SimulatedDevice(Date start = ManualClock::defaultStartDate);
    ~SimulatedDevice();
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

    Platform& platform() { return *_platform; }
    const std::string& libraryDirectory() const { return _platform->libraryDirectory; }
    ManualClock& clock() { return *_clock; }
    CapturedSystemLog& systemLog() { return *_systemLog; }
    InProcessSystemNotificationCenter& systemNotificationCenter() { return *_systemNotificationCenter; }
    SimulatedSystemAlerts& systemAlerts() { return *_systemAlerts; }
    SimulatedApplicationWorkspace& applicationWorkspace();
    SimulatedProcessManager& processManager() { return *_processManager; }
    LocationServices& locationServices() { return *_platform->locationServices; }

    // Posts to the power log while this device is installed, oldest first.
    struct PowerLogEntry {
        int32_t pid;
        std::string bundleIdentifier;
        bool remoteNotification; // else a local notification fired
    };
    std::vector<PowerLogEntry> powerLogEntries() const;
    SimulatedSystemService& systemService();
    SimulatedBulletinService& bulletinService();
    SimulatedPushService& pushService();
    // Tests report application states here.
    ApplicationStateService& applicationStates();
    SimulatedDownloadManager& downloadManager();
    SimulatedProfileConnection& profileConnection();
    InProcessIpcService& ipc();

    // Moves the clock on, firing due timers in date order, and lets all work finish.
    void advance(double seconds);
    void waitUntilIdle();
    // The lines a file logger wrote so far, without their timestamps.
    std::vector<std::string> fileLogLines(const std::string& loggerName) const;

private:
    std::shared_ptr<Platform> _platform;
    std::shared_ptr<ManualClock> _clock;
    std::shared_ptr<CapturedSystemLog> _systemLog;
    std::shared_ptr<InProcessSystemNotificationCenter> _systemNotificationCenter;
    std::shared_ptr<SimulatedSystemAlerts> _systemAlerts;
    std::shared_ptr<SimulatedProcessManager> _processManager;
    struct PowerLog;
    std::shared_ptr<PowerLog> _powerLog;
};

} // namespace tessel
