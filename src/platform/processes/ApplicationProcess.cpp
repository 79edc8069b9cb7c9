#include "platform/processes/ApplicationProcess.h"

#include "platform/foundation/Format.h"

#include <vector>

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

bool ApplicationProcess::isBeingDebugged() const
{
    std::lock_guard lock(_mutex);
    return _beingDebugged;
}

void ApplicationProcess::setBeingDebugged(bool beingDebugged)
{
    std::vector<std::shared_ptr<ApplicationProcessObserver>> observers;
    {
        std::lock_guard lock(_mutex);
        if (_beingDebugged == beingDebugged)
            return;
        _beingDebugged = beingDebugged;
        for (auto& weak : _observers) {
            if (auto strong = weak.lock())
                observers.push_back(std::move(strong));
        }
    }
    auto self = shared_from_this();
    for (auto& observer : observers)
        observer->applicationProcessDebuggingStateDidChange(self);
}

void ApplicationProcess::addObserver(const std::shared_ptr<ApplicationProcessObserver>& observer)
{
    if (!observer)
        return;
    std::lock_guard lock(_mutex);
    std::erase_if(_observers, [&](auto& weak) {
        auto strong = weak.lock();
        return !strong || strong == observer;
    });
    _observers.push_back(observer);
}

void ApplicationProcess::removeObserver(const ApplicationProcessObserver* observer)
{
    std::lock_guard lock(_mutex);
    std::erase_if(_observers, [&](auto& weak) {
        auto strong = weak.lock();
        return !strong || strong.get() == observer;
    });
}

std::string ApplicationProcess::description() const
{
    return format("<ApplicationProcess %@ pid=%d visibility=%d>", _bundleIdentifier, _pid,
        static_cast<int>(state().visibility));
}

} // namespace tessel
