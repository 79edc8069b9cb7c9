#include "platform/linux/LinuxProcessManager.h"

#include <cerrno>
#include <csignal>

namespace tessel {

namespace {

    bool isRunning(int32_t pid)
    {
        // EPERM: it exists but belongs to someone else.
        return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
    }

} // namespace

bool LinuxProcessManager::registerProcess(const std::string& bundleIdentifier, int32_t pid,
    ProcessVisibility visibility, ProcessWorkspace::ActionSink actionSink)
{
    if (bundleIdentifier.empty() || !isRunning(pid))
        return false;
    addProcess(
        std::make_shared<ApplicationProcess>(bundleIdentifier, pid, visibility, std::move(actionSink)));
    return true;
}

bool LinuxProcessManager::unregisterProcess(int32_t pid) { return removeProcess(pid); }

void LinuxProcessManager::removeExitedProcesses()
{
    for (auto& process : allProcesses()) {
        if (!isRunning(process->pid()))
            removeProcess(process->pid());
    }
}

} // namespace tessel
