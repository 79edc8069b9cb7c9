#pragma once

#include "platform/concurrency/Clock.h"
#include "platform/concurrency/TimerSchedule.h"

#include <mutex>
#include <thread>

namespace tessel {

// The wall clock. Timers wait on one thread for the earliest deadline, which
// also notices when the wall clock is set and re-evaluates every deadline.
class SystemClock : public Clock {
public:
    SystemClock();
    ~SystemClock() override;

    Date now() const override;
    TimerId scheduleTimer(
        Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action) override;
    void cancelTimer(TimerId id) override;

    // Called on the global queue after the wall clock was set, once the timers
    // due at the new time were fired.
    void setSignificantTimeChangeHandler(std::function<void()> handler);

    // True when timers use the alarm clock, which may wake a suspended machine.
    bool usesAlarmClock() const { return _alarmClock; }

private:
    void run();
    void armLocked();

    int _timerFd = -1;
    int _stopFd = -1;
    bool _alarmClock = false;
    std::mutex _mutex;
    TimerSchedule _timers;
    std::function<void()> _timeChangeHandler;
    std::thread _thread;
};

} // namespace tessel
