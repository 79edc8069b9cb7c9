#include "platform/concurrency/TimerSchedule.h"

#include "platform/concurrency/WorkQueue.h"

#include <cmath>

namespace tessel {

void TimerSchedule::Timer::fire() { queue->async(std::move(action)); }

Clock::TimerId TimerSchedule::add(
    Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action)
{
    // A NaN date would break the ordering of the whole schedule; treat it as due.
    if (std::isnan(fireDate.timeIntervalSinceReferenceDate()))
        fireDate = Date::distantPast();
    if (!queue)
        queue = WorkQueue::global().shared_from_this();
    Clock::TimerId id = ++_lastId;
    _timers.emplace(
        std::make_pair(fireDate, id), Timer { id, fireDate, std::move(queue), std::move(action) });
    _dates.emplace(id, fireDate);
    return id;
}

void TimerSchedule::remove(Clock::TimerId id)
{
    auto date = _dates.find(id);
    if (date == _dates.end())
        return;
    _timers.erase(std::make_pair(date->second, id));
    _dates.erase(date);
}

std::optional<TimerSchedule::Timer> TimerSchedule::takeFirstDue(Date date)
{
    if (_timers.empty() || _timers.begin()->first.first > date)
        return std::nullopt;
    auto node = _timers.extract(_timers.begin());
    _dates.erase(node.mapped().id);
    return std::move(node.mapped());
}

std::optional<Date> TimerSchedule::nextFireDate() const
{
    if (_timers.empty())
        return std::nullopt;
    return _timers.begin()->first.first;
}

} // namespace tessel
