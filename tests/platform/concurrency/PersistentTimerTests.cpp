#include "platform/Platform.h"
#include "platform/concurrency/PersistentTimer.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/SystemClock.h"
#include "platform/sim/SimulatedDevice.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <future>

using namespace tessel;

TEST(PersistentTimer, FiresOnceOnItsQueueUnlessInvalidatedOrDestroyed)
{
    SimulatedDevice device;
    auto queue = WorkQueue::create("com.tessel.test.persistent");
    std::vector<std::string> fired;
    auto make = [&](double offset, const char* name) {
        return std::make_unique<PersistentTimer>(
            device.clock().now().addingTimeInterval(offset), "app", [&, name] {
                EXPECT_TRUE(queue->isCurrent());
                fired.push_back(name);
            });
    };
    auto kept = make(10, "kept");
    auto invalidated = make(5, "invalidated");
    auto destroyed = make(1, "destroyed");
    auto unscheduled = make(2, "unscheduled");
    for (auto* timer : { kept.get(), invalidated.get(), destroyed.get() })
        timer->scheduleInQueue(queue);
    kept->scheduleInQueue(queue);
    EXPECT_EQ(device.clock().pendingTimerCount(), 3u) << "a second schedule does nothing";
    invalidated->invalidate();
    destroyed.reset();
    EXPECT_FALSE(invalidated->isValid());
    invalidated->scheduleInQueue(queue);

    device.advance(60);
    EXPECT_EQ(fired, std::vector<std::string> { "kept" });
    EXPECT_FALSE(kept->isValid()) << "one-shot";
    device.advance(60);
    EXPECT_EQ(fired.size(), 1u);
}

TEST(PersistentTimer, ClampsTheEarlyFireProportion)
{
    PersistentTimer timer(Date(0), "app", [] {});
    for (auto [given, kept] : { std::pair { 0.5, 0.5 }, { -1.0, 0.0 }, { 7.0, 1.0 }, { NAN, 1.0 } }) {
        timer.setMinimumEarlyFireProportion(given);
        EXPECT_EQ(timer.minimumEarlyFireProportion(), kept) << given;
    }
}

// The real clock, with a deadline a few tens of milliseconds away.
TEST(PersistentTimerConcurrent, FiresOnTheSystemClockAtItsDate)
{
    auto platform = std::make_shared<Platform>();
    auto clock = std::make_shared<SystemClock>();
    platform->clock = clock;
    Platform::install(platform);
    auto queue = WorkQueue::create("com.tessel.test.persistent.real");

    std::atomic<bool> cancelledRan = false;
    std::promise<Date> firedAt;
    Date start = clock->now();
    PersistentTimer cancelled(start.addingTimeInterval(0.02), "app", [&] { cancelledRan = true; });
    PersistentTimer timer(start.addingTimeInterval(0.05), "app", [&] { firedAt.set_value(clock->now()); });
    cancelled.scheduleInQueue(queue);
    timer.scheduleInQueue(queue);
    cancelled.invalidate();

    auto future = firedAt.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_GE(future.get(), timer.fireDate());
    WorkQueue::waitUntilIdle();
    EXPECT_FALSE(cancelledRan) << "it was due first, so the clock has passed it";
}
