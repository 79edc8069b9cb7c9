#pragma once

#include "platform/concurrency/Clock.h"
#include "platform/concurrency/TimerSchedule.h"
#include "platform/linux/TimeZoneWatch.h"

#include <mutex>
#include <thread>

namespace tessel {

// The wall clock. Timers wait on one thread for the earliest deadline, which
// also notices when the wall clock is set and re-evaluates every deadline, and
// when the file that sets the time zone changes.
class SystemClock : public Clock {
public:
    // Watches the host's time zone file (LocalNotification::hostTimeZoneFile).
    SystemClock();
    // Watches timeZoneFile instead; empty: none.
    explicit SystemClock(std::string timeZoneFile);
    ~SystemClock() override;

    Date now() const override;
    TimerId scheduleTimer(
        Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action) override;
    void cancelTimer(TimerId id) override;

    // Called on the global queue after the wall clock was set, once the timers
    // due at the new time were fired, and after the time zone file changed.
    void setSignificantTimeChangeHandler(std::function<void()> handler);
    // What the timer thread does once the wall clock was set.
    void wallClockWasSet();

    // True when timers use the alarm clock, which may wake a suspended machine.
    bool usesAlarmClock() const { return _alarmClock; }

private:
    void run();
    void armLocked();
    void fireDueTimers();
    void reportTimeChange();

    int _timerFd = -1;
    int _stopFd = -1;
    bool _alarmClock = false;
    std::mutex _mutex;
    TimerSchedule _timers;
    std::function<void()> _timeChangeHandler;
    TimeZoneWatch _timeZoneWatch;
    std::thread _thread;
};

} // namespace tessel
