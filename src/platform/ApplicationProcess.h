#pragma once

#include "platform/ProcessAction.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

enum class ProcessVisibility : int {
    Unknown = 0,
    Background = 1,
    Foreground = 2,
};

struct ApplicationProcessState {
    ProcessVisibility visibility = ProcessVisibility::Unknown;
};

// Where a process takes actions from the server.
class ProcessWorkspace {
public:
    using ActionSink = std::function<void(const std::vector<std::shared_ptr<ProcessAction>>& actions)>;

    explicit ProcessWorkspace(ActionSink sink);
    void sendActions(const std::vector<std::shared_ptr<ProcessAction>>& actions);

private:
    const ActionSink _sink;
};

// A running process of an application. Thread-safe.
class ApplicationProcess {
public:
    ApplicationProcess(std::string bundleIdentifier, int32_t pid, ProcessVisibility visibility,
        ProcessWorkspace::ActionSink actionSink);

    const std::string& bundleIdentifier() const { return _bundleIdentifier; }
    int32_t pid() const { return _pid; }
    ApplicationProcessState state() const;
    void setVisibility(ProcessVisibility visibility);
    ProcessWorkspace& workspace() { return _workspace; }
    std::string description() const;

private:
    const std::string _bundleIdentifier;
    const int32_t _pid;
    mutable std::mutex _mutex;
    ApplicationProcessState _state;
    ProcessWorkspace _workspace;
};

} // namespace tessel
