#pragma once

#include "platform/processes/ApplicationProcess.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

class ProcessManager;

// Called on the thread that added or removed the process, without locks held.
class ProcessManagerObserver {
public:
    virtual ~ProcessManagerObserver();
    virtual void processManagerDidAddProcess(
        ProcessManager& manager, const std::shared_ptr<ApplicationProcess>& process)
        = 0;
    virtual void processManagerDidRemoveProcess(
        ProcessManager& manager, const std::shared_ptr<ApplicationProcess>& process)
        = 0;
};

// The running processes of applications. Thread-safe; implementations decide
// how processes come and go.
class ProcessManager {
public:
    virtual ~ProcessManager();

    // In launch order: the last one is the newest.
    std::vector<std::shared_ptr<ApplicationProcess>> processesForBundleIdentifier(
        const std::string& bundleIdentifier);

    // Every running application process, in launch order.
    std::vector<std::shared_ptr<ApplicationProcess>> allApplicationProcesses();
    // Null when no running process has that pid.
    std::shared_ptr<ApplicationProcess> processForPid(int32_t pid);

    // Held weakly; an observer that is gone is skipped.
    void addObserver(const std::shared_ptr<ProcessManagerObserver>& observer);
    void removeObserver(const ProcessManagerObserver* observer);

protected:
    // A second process with a pid already listed replaces the first.
    void addProcess(const std::shared_ptr<ApplicationProcess>& process);
    // False when no process has that pid.
    bool removeProcess(int32_t pid);
    // Before every query: drop processes that ended without saying so.
    virtual void removeExitedProcesses() { }
    std::vector<std::shared_ptr<ApplicationProcess>> allProcesses();

private:
    std::vector<std::shared_ptr<ProcessManagerObserver>> liveObservers();

    std::mutex _mutex;
    std::vector<std::shared_ptr<ApplicationProcess>> _processes;
    std::vector<std::weak_ptr<ProcessManagerObserver>> _observers;
};

} // namespace tessel
