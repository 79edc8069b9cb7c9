#include "platform/concurrency/PersistentTimer.h"

#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/Format.h"

#include <atomic>
#include <cmath>

namespace tessel {

// Shared with the clock's callback, which may run after the timer is gone.
struct PersistentTimer::State {
    std::atomic<bool> valid { true };
    Action action;
};

PersistentTimer::PersistentTimer(Date fireDate, std::string serviceIdentifier, Action action, Value userInfo)
    : _fireDate(fireDate)
    , _serviceIdentifier(std::move(serviceIdentifier))
    , _userInfo(std::move(userInfo))
    , _state(std::make_shared<State>())
{
    _state->action = std::move(action);
}

PersistentTimer::~PersistentTimer() { invalidate(); }

void PersistentTimer::setMinimumEarlyFireProportion(double proportion)
{
    _minimumEarlyFireProportion = std::isfinite(proportion) ? std::clamp(proportion, 0.0, 1.0) : 1.0;
}

void PersistentTimer::scheduleInQueue(std::shared_ptr<WorkQueue> queue)
{
    if (_timerId || !isValid())
        return;
    _clock = Platform::current().clock;
    std::weak_ptr<State> weakState = _state;
    _timerId = _clock->scheduleTimer(_fireDate, std::move(queue), [weakState] {
        auto state = weakState.lock();
        if (!state || !state->valid.exchange(false))
            return;
        // Keeps the action's captures alive while it runs, even if it drops the timer.
        auto action = state->action;
        action();
    });
}

void PersistentTimer::invalidate()
{
    if (!_state->valid.exchange(false))
        return;
    if (_clock && _timerId)
        _clock->cancelTimer(_timerId);
}

bool PersistentTimer::isValid() const { return _state->valid.load(); }

std::string PersistentTimer::description() const
{
    return format("<PersistentTimer %@ fireDate=%@ valid=%s userVisible=%s earlyFireProportion=%.2f>",
        _serviceIdentifier, _fireDate, isValid() ? "YES" : "NO", _userVisible ? "YES" : "NO",
        _minimumEarlyFireProportion);
}

} // namespace tessel
