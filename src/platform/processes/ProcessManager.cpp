#include "platform/processes/ProcessManager.h"

#include <algorithm>

namespace tessel {

ProcessManagerObserver::~ProcessManagerObserver() = default;
ProcessManager::~ProcessManager() = default;

std::vector<std::shared_ptr<ApplicationProcess>> ProcessManager::processesForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    removeExitedProcesses();
    std::lock_guard lock(_mutex);
    std::vector<std::shared_ptr<ApplicationProcess>> processes;
    for (auto& process : _processes) {
        if (process->bundleIdentifier() == bundleIdentifier)
            processes.push_back(process);
    }
    return processes;
}

std::vector<std::shared_ptr<ApplicationProcess>> ProcessManager::allApplicationProcesses()
{
    removeExitedProcesses();
    return allProcesses();
}

std::shared_ptr<ApplicationProcess> ProcessManager::processForPid(int32_t pid)
{
    removeExitedProcesses();
    std::lock_guard lock(_mutex);
    auto found = std::find_if(_processes.begin(), _processes.end(), [&](auto& p) { return p->pid() == pid; });
    return found == _processes.end() ? nullptr : *found;
}

void ProcessManager::addObserver(const std::shared_ptr<ProcessManagerObserver>& observer)
{
    if (!observer)
        return;
    std::lock_guard lock(_mutex);
    _observers.push_back(observer);
}

void ProcessManager::removeObserver(const ProcessManagerObserver* observer)
{
    std::lock_guard lock(_mutex);
    std::erase_if(_observers, [&](auto& weak) {
        auto strong = weak.lock();
        return !strong || strong.get() == observer;
    });
}

void ProcessManager::addProcess(const std::shared_ptr<ApplicationProcess>& process)
{
    std::shared_ptr<ApplicationProcess> replaced;
    {
        std::lock_guard lock(_mutex);
        auto same = std::find_if(
            _processes.begin(), _processes.end(), [&](auto& p) { return p->pid() == process->pid(); });
        if (same != _processes.end()) {
            replaced = *same;
            _processes.erase(same);
        }
        _processes.push_back(process);
    }
    for (auto& observer : liveObservers()) {
        if (replaced)
            observer->processManagerDidRemoveProcess(*this, replaced);
        observer->processManagerDidAddProcess(*this, process);
    }
}

bool ProcessManager::removeProcess(int32_t pid)
{
    std::shared_ptr<ApplicationProcess> removed;
    {
        std::lock_guard lock(_mutex);
        auto found
            = std::find_if(_processes.begin(), _processes.end(), [&](auto& p) { return p->pid() == pid; });
        if (found == _processes.end())
            return false;
        removed = *found;
        _processes.erase(found);
    }
    for (auto& observer : liveObservers())
        observer->processManagerDidRemoveProcess(*this, removed);
    return true;
}

std::vector<std::shared_ptr<ApplicationProcess>> ProcessManager::allProcesses()
{
    std::lock_guard lock(_mutex);
    return _processes;
}

std::vector<std::shared_ptr<ProcessManagerObserver>> ProcessManager::liveObservers()
{
    std::lock_guard lock(_mutex);
    std::vector<std::shared_ptr<ProcessManagerObserver>> observers;
    for (auto& weak : _observers) {
        if (auto strong = weak.lock())
            observers.push_back(std::move(strong));
    }
    return observers;
}

} // namespace tessel
