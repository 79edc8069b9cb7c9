#include "platform/sim/ManualClock.h"

#include "platform/concurrency/WorkQueue.h"

#include <cstdio>
#include <cstdlib>

namespace tessel {

ManualClock::ManualClock(Date start)
    : _now(start)
{
}

Date ManualClock::now() const
{
    std::lock_guard lock(_mutex);
    return _now;
}

Clock::TimerId ManualClock::scheduleTimer(
    Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action)
{
    std::lock_guard lock(_mutex);
    return _timers.add(fireDate, std::move(queue), std::move(action));
}

void ManualClock::cancelTimer(TimerId id)
{
    std::lock_guard lock(_mutex);
    _timers.remove(id);
}

void ManualClock::setNow(Date date)
{
    std::lock_guard lock(_mutex);
    _now = date;
}

void ManualClock::advance(double seconds)
{
    if (WorkQueue* queue = WorkQueue::current()) {
        // Waiting for idle queues from a queue would wait for itself.
        fprintf(stderr, "ManualClock::advance called from queue '%s'\n", queue->label().c_str());
        fflush(stderr);
        abort();
    }
    // Work already posted may still schedule timers inside this window.
    WorkQueue::waitUntilIdle();
    Date target = now().addingTimeInterval(seconds);
    for (;;) {
        std::optional<TimerSchedule::Timer> timer;
        {
            std::lock_guard lock(_mutex);
            timer = _timers.takeFirstDue(target);
            if (!timer)
                break;
            // Past-due timers fire at the current time; time never runs backwards here.
            if (timer->fireDate > _now)
                _now = timer->fireDate;
        }
        timer->fire();
        WorkQueue::waitUntilIdle();
    }
    std::lock_guard lock(_mutex);
    _now = target;
}

size_t ManualClock::pendingTimerCount() const
{
    std::lock_guard lock(_mutex);
    return _timers.size();
}

std::optional<Date> ManualClock::nextFireDate() const
{
    std::lock_guard lock(_mutex);
    return _timers.nextFireDate();
}

} // namespace tessel
