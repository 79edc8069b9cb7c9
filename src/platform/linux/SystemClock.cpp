#include "platform/linux/SystemClock.h"

#include "platform/concurrency/WorkQueue.h"
#include "platform/records/LocalNotification.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vector>

namespace tessel {

namespace {

    [[noreturn]] void fail(const char* what)
    {
        fprintf(stderr, "SystemClock: %s: %s\n", what, strerror(errno));
        fflush(stderr);
        abort();
    }

    // Rounded up, and a microsecond late, so that now() is past the date once the
    // deadline passed despite the precision of a double.
    timespec deadlineFor(Date date)
    {
        double seconds = date.timeIntervalSince1970();
        if (!(seconds > 0))
            return { 0, 1 }; // zero would disarm; any past time fires at once
        double whole = std::floor(seconds);
        long nanoseconds = static_cast<long>(std::ceil((seconds - whole) * 1e6)) * 1000 + 1000;
        time_t wholeSeconds = static_cast<time_t>(whole);
        if (nanoseconds >= 1000000000L) {
            wholeSeconds += 1;
            nanoseconds -= 1000000000L;
        }
        return { wholeSeconds, nanoseconds };
    }

    // Far deadlines are re-evaluated at least this often; an armed timer is also
    // what lets a change of the wall clock be noticed while nothing is scheduled.
    constexpr double longestWait = 86400.0;

} // namespace

SystemClock::SystemClock()
    : SystemClock(LocalNotification::hostTimeZoneFile())
{
}

SystemClock::SystemClock(std::string timeZoneFile)
    : _timeZoneWatch(std::move(timeZoneFile))
{
    // The alarm clock needs CAP_WAKE_ALARM; without it the real-time clock does.
    _timerFd = timerfd_create(CLOCK_REALTIME_ALARM, TFD_CLOEXEC | TFD_NONBLOCK);
    _alarmClock = _timerFd >= 0;
    if (_timerFd < 0)
        _timerFd = timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK);
    if (_timerFd < 0)
        fail("cannot create the timer");
    _stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (_stopFd < 0)
        fail("cannot create the stop event");
    {
        std::lock_guard lock(_mutex);
        armLocked();
    }
    _thread = std::thread([this] { run(); });
}

SystemClock::~SystemClock()
{
    uint64_t one = 1;
    if (write(_stopFd, &one, sizeof one) != sizeof one)
        fail("cannot stop the timer thread");
    _thread.join();
    close(_timerFd);
    close(_stopFd);
}

Date SystemClock::now() const
{
    timespec time {};
    clock_gettime(CLOCK_REALTIME, &time);
    return Date::fromTimeIntervalSince1970(static_cast<double>(time.tv_sec) + time.tv_nsec / 1e9);
}

Clock::TimerId SystemClock::scheduleTimer(
    Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action)
{
    std::lock_guard lock(_mutex);
    TimerId id = _timers.add(fireDate, std::move(queue), std::move(action));
    armLocked();
    return id;
}

void SystemClock::cancelTimer(TimerId id)
{
    std::lock_guard lock(_mutex);
    _timers.remove(id);
    // Left armed for the old deadline: an early wake finds nothing due and re-arms.
}

void SystemClock::setSignificantTimeChangeHandler(std::function<void()> handler)
{
    std::lock_guard lock(_mutex);
    _timeChangeHandler = std::move(handler);
}

void SystemClock::armLocked()
{
    Date latest = now().addingTimeInterval(longestWait);
    Date deadline = _timers.nextFireDate().value_or(latest);
    itimerspec setting {};
    setting.it_value = deadlineFor(deadline < latest ? deadline : latest);
    if (timerfd_settime(_timerFd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &setting, nullptr) < 0)
        fail("cannot arm the timer");
}

void SystemClock::run()
{
    pollfd fds[3]
        = { { _timerFd, POLLIN, 0 }, { _stopFd, POLLIN, 0 }, { _timeZoneWatch.descriptor(), POLLIN, 0 } };
    for (;;) {
        if (poll(fds, 3, -1) < 0) {
            if (errno == EINTR)
                continue;
            fail("cannot wait for the timer");
        }
        if (fds[1].revents)
            return;
        if (fds[2].revents && _timeZoneWatch.takeChange())
            reportTimeChange();
        if (!fds[0].revents)
            continue;
        uint64_t expirations = 0;
        if (read(_timerFd, &expirations, sizeof expirations) < 0 && errno == ECANCELED)
            wallClockWasSet();
        else
            fireDueTimers();
    }
}

void SystemClock::wallClockWasSet()
{
    fireDueTimers();
    reportTimeChange();
}

void SystemClock::fireDueTimers()
{
    std::vector<TimerSchedule::Timer> due;
    {
        std::lock_guard lock(_mutex);
        Date current = now();
        while (auto timer = _timers.takeFirstDue(current))
            due.push_back(std::move(*timer));
        armLocked();
    }
    for (auto& timer : due)
        timer.fire();
}

void SystemClock::reportTimeChange()
{
    std::function<void()> handler;
    {
        std::lock_guard lock(_mutex);
        handler = _timeChangeHandler;
    }
    if (handler)
        WorkQueue::global().async(std::move(handler));
}

} // namespace tessel
