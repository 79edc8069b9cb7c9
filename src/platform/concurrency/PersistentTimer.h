#pragma once

#include "platform/concurrency/Clock.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"

#include <functional>
#include <memory>
#include <string>

namespace tessel {

class WorkQueue;

// A one-shot timer that wakes the device for its fire date, on the installed
// platform's clock. Schedule it once on the queue its action runs on; after
// invalidate() (or destruction) the action never runs, even when the clock
// already handed it to the queue.
class PersistentTimer {
public:
    using Action = std::function<void()>;

    PersistentTimer(Date fireDate, std::string serviceIdentifier, Action action, Value userInfo = {});
    ~PersistentTimer();
    PersistentTimer(const PersistentTimer&) = delete;
    PersistentTimer& operator=(const PersistentTimer&) = delete;

    Date fireDate() const { return _fireDate; }
    const std::string& serviceIdentifier() const { return _serviceIdentifier; }
    const Value& userInfo() const { return _userInfo; }

    // How early, as a share of the remaining wait, the platform may fire to save
    // wakes; 1.0 asks for the exact date. Timers here always fire on the date.
    double minimumEarlyFireProportion() const { return _minimumEarlyFireProportion; }
    void setMinimumEarlyFireProportion(double proportion);
    // A user-visible timer wakes the device from suspend where the clock can.
    bool isUserVisible() const { return _userVisible; }
    void setUserVisible(bool visible) { _userVisible = visible; }

    // A second call, or one after invalidate(), does nothing.
    void scheduleInQueue(std::shared_ptr<WorkQueue> queue);
    void invalidate();
    bool isValid() const;
    bool isScheduled() const { return _timerId != 0; }

    std::string description() const;

private:
    struct State;

    const Date _fireDate;
    const std::string _serviceIdentifier;
    const Value _userInfo;
    double _minimumEarlyFireProportion = 0.0;
    bool _userVisible = false;
    std::shared_ptr<State> _state;
    std::shared_ptr<Clock> _clock;
    Clock::TimerId _timerId = 0;
};

} // namespace tessel
