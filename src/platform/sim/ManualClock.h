#pragma once

#include "platform/concurrency/Clock.h"
#include "platform/concurrency/TimerSchedule.h"

#include <mutex>
#include <optional>

namespace tessel {

// A clock that moves only when told to, firing its timers deterministically.
class ManualClock : public Clock {
public:
    static constexpr Date defaultStartDate = Date(788918400.0); // 2026-01-01 00:00:00 UTC

    explicit ManualClock(Date start = defaultStartDate);

    Date now() const override;
    TimerId scheduleTimer(
        Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action) override;
    void cancelTimer(TimerId id) override;

    // Moves the time without firing anything; timers now past due fire on the next advance.
    void setNow(Date date);
    // Fires, in date order, every timer due up to now + seconds, each with now set
    // to its date and every queue idle before the next, so timers re-armed by an
    // action fire in the same call. Called from outside any queue.
    void advance(double seconds);

    size_t pendingTimerCount() const;
    std::optional<Date> nextFireDate() const;

private:
    mutable std::mutex _mutex;
    Date _now;
    TimerSchedule _timers;
};

} // namespace tessel
