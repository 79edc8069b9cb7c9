#include "platform/sim/SimulatedProcessManager.h"

namespace tessel {

std::shared_ptr<ApplicationProcess> SimulatedProcessManager::launch(
    const std::string& bundleIdentifier, ProcessVisibility visibility)
{
    int32_t pid;
    {
        std::lock_guard lock(_actionsMutex);
        pid = _nextPid++;
    }
    auto process = std::make_shared<ApplicationProcess>(bundleIdentifier, pid, visibility,
        [this, bundleIdentifier, pid](const std::vector<std::shared_ptr<ProcessAction>>& actions) {
            std::lock_guard lock(_actionsMutex);
            for (auto& action : actions)
                _sentActions.push_back({ bundleIdentifier, pid, action });
        });
    addProcess(process);
    return process;
}

bool SimulatedProcessManager::terminate(int32_t pid) { return removeProcess(pid); }

std::vector<SimulatedProcessManager::SentAction> SimulatedProcessManager::sentActions() const
{
    std::lock_guard lock(_actionsMutex);
    return _sentActions;
}

void SimulatedProcessManager::clearSentActions()
{
    std::lock_guard lock(_actionsMutex);
    _sentActions.clear();
}

} // namespace tessel
