#pragma once

#include "platform/processes/ProcessManager.h"

namespace tessel {

// Application processes the host registers as it launches them. A process that
// ends without being unregistered is dropped the next time processes are asked for.
class LinuxProcessManager : public ProcessManager {
public:
    // Refuses pids that do not name a running process.
    bool registerProcess(const std::string& bundleIdentifier, int32_t pid, ProcessVisibility visibility,
        ProcessWorkspace::ActionSink actionSink);
    bool unregisterProcess(int32_t pid);

protected:
    void removeExitedProcesses() override;
};

} // namespace tessel
