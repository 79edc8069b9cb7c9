// The confinement checks must hold in release builds too.
#ifndef NDEBUG
#define NDEBUG
#endif

#include "platform/concurrency/WorkQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

using namespace tessel;

namespace {

// Runs body inside a block of queue (or on a fresh thread when queue is null)
// and waits for it.
void runOn(WorkQueue* queue, const std::function<void()>& body)
{
    if (!queue) {
        std::thread(body).join();
        return;
    }
    std::promise<void> finished;
    queue->async([&] {
        body();
        finished.set_value();
    });
    finished.get_future().wait();
}

} // namespace

TEST(WorkQueueConcurrent, SerialQueuesRunOneBlockAtATimeInPostingOrder)
{
    constexpr int producers = 4;
    constexpr int blocksPerProducer = 400;
    // Same label, still two queues: each is serial on its own, not with the other.
    std::shared_ptr<WorkQueue> queues[]
        = { WorkQueue::create("com.tessel.test.serial"), WorkQueue::create("com.tessel.test.serial") };
    struct Observed {
        std::atomic<int> running { 0 };
        int mostRunning = 0;
        std::vector<int> lastSequence = std::vector<int>(producers, -1);
        int outOfOrder = 0;
        int blocks = 0;
    } observed[2];

    std::vector<std::thread> threads;
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int sequence = 0; sequence < blocksPerProducer; ++sequence) {
                for (int index = 0; index < 2; ++index) {
                    queues[index]->async([&state = observed[index], producer, sequence] {
                        int running = ++state.running;
                        state.mostRunning = std::max(state.mostRunning, running);
                        std::this_thread::yield();
                        if (state.lastSequence[producer] + 1 != sequence)
                            ++state.outOfOrder;
                        state.lastSequence[producer] = sequence;
                        ++state.blocks;
                        --state.running;
                    });
                }
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    WorkQueue::waitUntilIdle();

    for (auto& state : observed) {
        EXPECT_EQ(state.mostRunning, 1);
        EXPECT_EQ(state.outOfOrder, 0);
        EXPECT_EQ(state.blocks, producers * blocksPerProducer);
    }
}

TEST(WorkQueueConcurrent, WaitUntilIdleFollowsWorkHoppingBetweenQueues)
{
    constexpr int rounds = 200;
    auto a = WorkQueue::create("com.tessel.test.a");
    auto b = WorkQueue::create("com.tessel.test.b");
    std::atomic<int> hops { 0 };
    // Each block posts the next hop before it ends: A -> B -> global -> A ...
    std::function<void(int)> round = [&](int remaining) {
        ++hops;
        b->async([&, remaining] {
            ++hops;
            WorkQueue::global().async([&, remaining] {
                ++hops;
                if (remaining > 1)
                    a->async([&, remaining] { round(remaining - 1); });
            });
        });
    };
    a->async([&] { round(rounds); });
    WorkQueue::waitUntilIdle();
    EXPECT_EQ(hops.load(), rounds * 3);
}

// The caller of sync: a plain thread or a block of one of the queues.
class WorkQueueConcurrentSync : public testing::TestWithParam<const char*> {
protected:
    WorkQueue* callerQueue()
    {
        std::string caller = GetParam();
        if (caller == "SerialQueue")
            return _callerQueue.get();
        if (caller == "GlobalQueue")
            return &WorkQueue::global();
        return caller == "MainQueue" ? &WorkQueue::main() : nullptr;
    }

    std::shared_ptr<WorkQueue> _callerQueue = WorkQueue::create("com.tessel.test.caller");
};

TEST_P(WorkQueueConcurrentSync, RunsTheBlockOnTheTargetQueueAndPassesItsResultBack)
{
    WorkQueue* caller = callerQueue();
    runOn(caller, [&] {
        auto target = WorkQueue::create("com.tessel.test.target");
        EXPECT_EQ(WorkQueue::current(), caller);

        // Sync waits for the work posted before it.
        std::vector<int> done;
        for (int index = 0; index < 1000; ++index)
            target->async([&, index] { done.push_back(index); });
        EXPECT_EQ(target->sync([&] { return done.size(); }), 1000u);

        EXPECT_EQ(target->sync([] { return std::string("answer"); }), "answer");
        auto owned = target->sync([] { return std::make_unique<int>(7); });
        ASSERT_TRUE(owned);
        EXPECT_EQ(*owned, 7);
        int shared = 0;
        int& reference = target->sync([&]() -> int& { return shared; });
        EXPECT_EQ(&reference, &shared);

        bool ranOnTarget = false;
        bool callerLooksCurrent = false;
        target->sync([&] {
            ranOnTarget = target->isCurrent() && WorkQueue::current() == target.get();
            callerLooksCurrent = caller && caller->isCurrent();
        });
        EXPECT_TRUE(ranOnTarget);
        EXPECT_FALSE(callerLooksCurrent);

        for (WorkQueue* queue : { target.get(), &WorkQueue::global() }) {
            EXPECT_TRUE(queue->sync([&] { return queue->isCurrent(); }));
            try {
                queue->sync([]() -> int { throw std::runtime_error("refused"); });
                ADD_FAILURE() << "no exception from " << queue->label();
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "refused");
            }
            // The queue keeps serving after a block threw.
            EXPECT_EQ(queue->sync([] { return 1; }), 1);
        }
        // The caller is back on its own queue afterwards.
        EXPECT_EQ(WorkQueue::current(), caller);
    });
}

INSTANTIATE_TEST_SUITE_P(Callers, WorkQueueConcurrentSync,
    testing::Values("Thread", "SerialQueue", "GlobalQueue", "MainQueue"),
    [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

TEST(WorkQueue, IsCurrentAndAssertionsHoldOnlyInsideItsOwnBlocks)
{
    auto serial = WorkQueue::create("com.tessel.test.twin");
    auto twin = WorkQueue::create("com.tessel.test.twin");
    WorkQueue* queues[] = { &WorkQueue::main(), &WorkQueue::global(), serial.get(), twin.get() };

    for (WorkQueue* queue : queues)
        EXPECT_FALSE(queue->isCurrent()) << queue->label();
    EXPECT_EQ(WorkQueue::current(), nullptr);
    KT_ASSERT_NOT_ON_QUEUE(serial);

    for (WorkQueue* running : queues) {
        runOn(running, [&] {
            EXPECT_EQ(WorkQueue::current(), running);
            for (WorkQueue* queue : queues)
                EXPECT_EQ(queue->isCurrent(), queue == running)
                    << running->label() << " / " << queue->label();
        });
    }
    serial->sync([&] {
        KT_ASSERT_ON_QUEUE(serial);
        KT_ASSERT_ON_QUEUE(*serial);
        KT_ASSERT_NOT_ON_QUEUE(twin);
        KT_ASSERT_NOT_ON_QUEUE(WorkQueue::main());
    });
}

struct DeathCase {
    const char* name;
    std::function<void()> run;
    const char* message;
};

void PrintTo(const DeathCase& test, std::ostream* out) { *out << test.name; }

class WorkQueueDeathTest : public testing::TestWithParam<DeathCase> {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_P(WorkQueueDeathTest, AbortsWithAClearMessage) { EXPECT_DEATH(GetParam().run(), GetParam().message); }

INSTANTIATE_TEST_SUITE_P(Misuse, WorkQueueDeathTest,
    testing::Values(
        DeathCase { "SyncOnTheCurrentQueue",
            [] {
                auto queue = WorkQueue::create("com.tessel.test.self");
                queue->sync([&] { queue->sync([] {}); });
            },
            "sync to the queue the caller is running on would deadlock \\(queue 'com.tessel.test.self'\\)" },
        DeathCase { "SyncBackToAWaitingQueue",
            [] {
                auto a = WorkQueue::create("com.tessel.test.a");
                auto b = WorkQueue::create("com.tessel.test.b");
                a->sync([&] { b->sync([&] { a->sync([] {}); }); });
            },
            "waiting on the caller would deadlock \\(queue 'com.tessel.test.a'\\)" },
        DeathCase { "SyncBackThroughTheGlobalQueue",
            [] {
                auto a = WorkQueue::create("com.tessel.test.a");
                a->async([&] { WorkQueue::global().sync([&] { a->sync([] {}); }); });
                WorkQueue::waitUntilIdle();
            },
            "waiting on the caller would deadlock \\(queue 'com.tessel.test.a'\\)" },
        DeathCase { "WaitUntilIdleFromAQueue",
            [] { WorkQueue::global().sync([] { WorkQueue::waitUntilIdle(); }); },
            "waitUntilIdle called from a block" },
        DeathCase { "AssertOnQueueOffIt",
            [] {
                auto queue = WorkQueue::create("com.tessel.test.confined");
                KT_ASSERT_ON_QUEUE(queue);
            },
            "WorkQueueTests.cpp:[0-9]+: queue: expected to run on queue 'com.tessel.test.confined', "
            "running on no queue" },
        DeathCase { "AssertNotOnQueueOnIt",
            [] {
                auto queue = WorkQueue::create("com.tessel.test.confined");
                queue->sync([&] { KT_ASSERT_NOT_ON_QUEUE(*queue); });
            },
            "WorkQueueTests.cpp:[0-9]+: \\*queue: expected not to run on queue 'com.tessel.test.confined', "
            "running on queue 'com.tessel.test.confined'" },
        DeathCase { "AssertOnANullQueue",
            [] {
                std::shared_ptr<WorkQueue> missing;
                KT_ASSERT_ON_QUEUE(missing);
            },
            "expected to run on queue '\\(null\\)'" },
        DeathCase { "ExceptionEscapingAPostedBlock",
            [] {
                auto queue = WorkQueue::create("com.tessel.test.thrower");
                queue->async([] { throw std::runtime_error("lost"); });
                WorkQueue::waitUntilIdle();
            },
            "uncaught exception in a block of queue 'com.tessel.test.thrower': lost" }),
    [](const testing::TestParamInfo<DeathCase>& info) { return std::string(info.param.name); });

class WorkQueueProcess : public testing::TestWithParam<const char*> { };

TEST_P(WorkQueueProcess, HelperExitsNormally)
{
    std::string command = std::string(TESSEL_HELPER_DIR) + "/" + GetParam();
    int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// workqueue_exit: returns from main while queue threads are busy or blocked.
// workqueue_main_host: serves the main queue on the process's main thread.
INSTANTIATE_TEST_SUITE_P(Helpers, WorkQueueProcess, testing::Values("workqueue_exit", "workqueue_main_host"),
    [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });
