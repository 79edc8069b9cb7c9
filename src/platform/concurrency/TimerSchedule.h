#pragma once

#include "platform/concurrency/Clock.h"

#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

namespace tessel {

// The timers of a clock in firing order: by date, then in the order they were
// scheduled. Not synchronized; the clock holding it guards it.
class TimerSchedule {
public:
    struct Timer {
        Clock::TimerId id = 0;
        Date fireDate;
        std::shared_ptr<WorkQueue> queue;
        std::function<void()> action;

        // Posts the action; from then on it counts as work in flight.
        void fire();
    };

    Clock::TimerId add(Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action);
    void remove(Clock::TimerId id);
    // Removes and returns the earliest timer if it is due at date.
    std::optional<Timer> takeFirstDue(Date date);

    std::optional<Date> nextFireDate() const;
    size_t size() const { return _timers.size(); }

private:
    std::map<std::pair<Date, Clock::TimerId>, Timer> _timers;
    std::unordered_map<Clock::TimerId, Date> _dates;
    Clock::TimerId _lastId = 0;
};

} // namespace tessel
