#include "platform/processes/ApplicationStateMonitor.h"

namespace tessel {

std::shared_ptr<ApplicationStateMonitor> ApplicationStateService::makeMonitor(
    int64_t stateMask, Handler handler)
{
    auto monitor = std::make_shared<ApplicationStateMonitor>(stateMask, std::move(handler));
    std::lock_guard lock(_lock);
    std::erase_if(_monitors, [](auto& weak) { return weak.expired(); });
    _monitors.push_back(monitor);
    return monitor;
}

void ApplicationStateService::reportStateChange(
    const std::string& bundleIdentifier, int64_t state, int64_t exitReason)
{
    reportStateChange(Value(Value::Dictionary {
        { ApplicationStateBundleIdentifierKey, bundleIdentifier },
        { ApplicationStateKey, state },
        { ApplicationStateExitReasonKey, exitReason },
    }));
}

void ApplicationStateService::reportStateChange(const Value& info)
{
    const Value& state = info[ApplicationStateKey];
    std::vector<std::shared_ptr<ApplicationStateMonitor>> monitors;
    {
        std::lock_guard lock(_lock);
        for (auto& weak : _monitors) {
            if (auto monitor = weak.lock())
                monitors.push_back(std::move(monitor));
        }
    }
    for (auto& monitor : monitors) {
        // A change without a state number is passed on: the receiver decides.
        if (!state.isNumber() || (monitor->stateMask() & state.integerValue()) != 0)
            monitor->handle(info);
    }
}

ApplicationStateMonitor::ApplicationStateMonitor(int64_t stateMask, ApplicationStateService::Handler handler)
    : _stateMask(stateMask)
    , _handler(std::make_shared<const ApplicationStateService::Handler>(std::move(handler)))
{
}

void ApplicationStateMonitor::invalidate()
{
    std::lock_guard lock(_lock);
    _handler.reset();
}

void ApplicationStateMonitor::handle(const Value& info)
{
    std::shared_ptr<const ApplicationStateService::Handler> handler;
    {
        std::lock_guard lock(_lock);
        handler = _handler;
    }
    if (handler && *handler)
        (*handler)(info);
}

} // namespace tessel
