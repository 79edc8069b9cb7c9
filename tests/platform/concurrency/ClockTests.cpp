#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/SystemClock.h"
#include "platform/sim/ManualClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <vector>

using namespace tessel;

namespace {

constexpr Date start = ManualClock::defaultStartDate;

struct Firing {
    int timer;
    double at; // seconds after start
    bool operator==(const Firing&) const = default;
};

void PrintTo(const Firing& firing, std::ostream* out)
{
    *out << "timer " << firing.timer << " at " << firing.at;
}

// Records which timer fired when, as the actions see the clock; a timer that
// ran off its queue shows as -1.
struct Recorder {
    ManualClock clock;
    std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tessel.test.timers");
    std::vector<Firing> fired;

    Clock::TimerId schedule(int timer, double offset, std::function<void()> then = {})
    {
        return clock.scheduleTimer(start.addingTimeInterval(offset), queue, [this, timer, then] {
            fired.push_back({ queue->isCurrent() ? timer : -1, clock.now().timeIntervalSinceDate(start) });
            if (then)
                then();
        });
    }
};

} // namespace

TEST(ManualClock, FiresDueTimersInDateOrderAtTheirDates)
{
    const struct {
        const char* name;
        std::vector<double> offsets; // timer i fires at start + offsets[i]
        double advanceBy;
        std::vector<Firing> expected;
        size_t remaining;
    } cases[] = {
        { "ByDateNotBySchedulingOrder", { 30, 10, 20 }, 60, { { 1, 10 }, { 2, 20 }, { 0, 30 } }, 0 },
        { "EqualDatesInSchedulingOrder", { 5, 5, 5 }, 5, { { 0, 5 }, { 1, 5 }, { 2, 5 } }, 0 },
        { "UpToAndIncludingTheTarget", { 10, 20, 20.5 }, 20, { { 0, 10 }, { 1, 20 } }, 1 },
        { "PastDueAtTheCurrentTime", { -5, 3 }, 0, { { 0, 0 } }, 1 },
        { "NothingDue", { 1 }, 0.5, {}, 1 },
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        Recorder recorder;
        for (size_t timer = 0; timer < test.offsets.size(); ++timer)
            recorder.schedule(static_cast<int>(timer), test.offsets[timer]);
        recorder.clock.advance(test.advanceBy);
        EXPECT_EQ(recorder.fired, test.expected);
        EXPECT_EQ(recorder.clock.pendingTimerCount(), test.remaining);
        EXPECT_EQ(recorder.clock.now(), start.addingTimeInterval(test.advanceBy));
    }
}

TEST(ManualClock, TimersArmedDuringAnAdvanceFireWithinIt)
{
    Recorder recorder;
    auto other = WorkQueue::create("com.tessel.test.other");
    // Re-arms itself every 10 s.
    std::function<void()> rearm
        = [&] { recorder.schedule(0, recorder.clock.now().timeIntervalSinceDate(start) + 10, rearm); };
    recorder.schedule(0, 10, rearm);
    // Arms a follow-up through another queue, which advance must wait for.
    recorder.schedule(1, 12, [&] { other->async([&] { recorder.schedule(2, 13); }); });

    recorder.clock.advance(35);
    std::vector<Firing> expected { { 0, 10 }, { 1, 12 }, { 2, 13 }, { 0, 20 }, { 0, 30 } };
    EXPECT_EQ(recorder.fired, expected);
    EXPECT_EQ(recorder.clock.pendingTimerCount(), 1u);
    EXPECT_EQ(recorder.clock.nextFireDate(), start.addingTimeInterval(40));
}

TEST(ManualClock, CancelledTimersNeverFire)
{
    Recorder recorder;
    recorder.schedule(0, 5);
    Clock::TimerId cancelledEarly = recorder.schedule(1, 6);
    Clock::TimerId cancelledByAction = 0;
    recorder.schedule(2, 7, [&] { recorder.clock.cancelTimer(cancelledByAction); });
    cancelledByAction = recorder.schedule(3, 7);
    Clock::TimerId fired = recorder.schedule(4, 8);

    recorder.clock.cancelTimer(cancelledEarly);
    recorder.clock.cancelTimer(cancelledEarly);
    recorder.clock.cancelTimer(9999);
    recorder.clock.advance(10);
    recorder.clock.cancelTimer(fired);

    std::vector<Firing> expected { { 0, 5 }, { 2, 7 }, { 4, 8 } };
    EXPECT_EQ(recorder.fired, expected);
    EXPECT_EQ(recorder.clock.pendingTimerCount(), 0u);
    EXPECT_EQ(recorder.clock.nextFireDate(), std::nullopt);
}

TEST(ManualClockDeathTest, AdvanceFromAQueueAborts)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ManualClock clock;
    EXPECT_DEATH(WorkQueue::global().sync([&] { clock.advance(1); }), "advance called from queue 'global'");
}

TEST(SystemClockConcurrent, FiresOnTheQueueAtOrAfterTheDateUnlessCancelled)
{
    SystemClock clock;
    auto queue = WorkQueue::create("com.tessel.test.system");
    std::vector<std::string> fired;
    std::promise<void> last;

    Date now = clock.now();
    Clock::TimerId cancelled
        = clock.scheduleTimer(now.addingTimeInterval(0.02), queue, [&] { fired.push_back("cancelled"); });
    clock.scheduleTimer(now.addingTimeInterval(-10), queue, [&] { fired.push_back("past due"); });
    Date date = now.addingTimeInterval(0.05);
    clock.scheduleTimer(date, queue, [&] {
        fired.push_back(queue->isCurrent() && clock.now() >= date ? "on time" : "early or elsewhere");
        last.set_value();
    });
    clock.cancelTimer(cancelled);
    clock.cancelTimer(12345);

    ASSERT_EQ(last.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    // Serial and in date order: a cancelled timer that fired would show up before the last one.
    std::vector<std::string> expected { "past due", "on time" };
    EXPECT_EQ(fired, expected);
    WorkQueue::waitUntilIdle();
}
