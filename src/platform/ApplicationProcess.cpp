#include "platform/ApplicationProcess.h"

#include "platform/Format.h"

namespace tessel {

ProcessWorkspace::ProcessWorkspace(ActionSink sink)
    : _sink(std::move(sink))
{
}

void ProcessWorkspace::sendActions(const std::vector<std::shared_ptr<ProcessAction>>& actions)
{
    if (_sink && !actions.empty())
        _sink(actions);
}

ApplicationProcess::ApplicationProcess(std::string bundleIdentifier, int32_t pid,
    ProcessVisibility visibility, ProcessWorkspace::ActionSink actionSink)
    : _bundleIdentifier(std::move(bundleIdentifier))
    , _pid(pid)
    , _state { visibility }
    , _workspace(std::move(actionSink))
{
}

ApplicationProcessState ApplicationProcess::state() const
{
    std::lock_guard lock(_mutex);
    return _state;
}

void ApplicationProcess::setVisibility(ProcessVisibility visibility)
{
    std::lock_guard lock(_mutex);
    _state.visibility = visibility;
}

std::string ApplicationProcess::description() const
{
    return format("<ApplicationProcess %@ pid=%d visibility=%d>", _bundleIdentifier, _pid,
        static_cast<int>(state().visibility));
}

} // namespace tessel
