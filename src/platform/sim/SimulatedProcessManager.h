#pragma once

#include "platform/processes/ProcessManager.h"

#include <mutex>
#include <string>
#include <vector>

namespace tessel {

// Processes a test launches and ends by hand; actions sent to them are kept.
class SimulatedProcessManager : public ProcessManager {
public:
    struct SentAction {
        std::string bundleIdentifier;
        int32_t pid;
        std::shared_ptr<ProcessAction> action;
    };

    std::shared_ptr<ApplicationProcess> launch(
        const std::string& bundleIdentifier, ProcessVisibility visibility = ProcessVisibility::Foreground);
    // False when no process has that pid.
    bool terminate(int32_t pid);

    std::vector<SentAction> sentActions() const;
    void clearSentActions();

private:
    mutable std::mutex _actionsMutex;
    std::vector<SentAction> _sentActions;
    int32_t _nextPid = 1000;
};

} // namespace tessel
