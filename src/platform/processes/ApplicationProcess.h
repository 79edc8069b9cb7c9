#pragma once

#include "platform/processes/ProcessAction.h"

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

class ApplicationProcess;

// Called on the thread that changed the process, without locks held.
class ApplicationProcessObserver {
public:
    virtual ~ApplicationProcessObserver() = default;
    virtual void applicationProcessDebuggingStateDidChange(const std::shared_ptr<ApplicationProcess>& process)
        = 0;
};

// A running process of an application. Thread-safe.
class ApplicationProcess : public std::enable_shared_from_this<ApplicationProcess> {
public:
    ApplicationProcess(std::string bundleIdentifier, int32_t pid, ProcessVisibility visibility,
        ProcessWorkspace::ActionSink actionSink);

    const std::string& bundleIdentifier() const { return _bundleIdentifier; }
    int32_t pid() const { return _pid; }
    ApplicationProcessState state() const;
    void setVisibility(ProcessVisibility visibility);
    ProcessWorkspace& workspace() { return _workspace; }
    // Whether a debugger is attached; the host (or a test) says so.
    bool isBeingDebugged() const;
    // Observers hear of changes only, not of a flag set to what it was.
    void setBeingDebugged(bool beingDebugged);
    // Held weakly; adding one twice adds it once.
    void addObserver(const std::shared_ptr<ApplicationProcessObserver>& observer);
    void removeObserver(const ApplicationProcessObserver* observer);
    std::string description() const;

private:
    const std::string _bundleIdentifier;
    const int32_t _pid;
    mutable std::mutex _mutex;
    ApplicationProcessState _state;
    bool _beingDebugged = false;
    std::vector<std::weak_ptr<ApplicationProcessObserver>> _observers;
    ProcessWorkspace _workspace;
};

} // namespace tessel
