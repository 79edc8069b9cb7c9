// Returns from main while queue threads are busy or blocked and a timer is
// pending; the process must still exit normally.
#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/SystemClock.h"

#include <future>

using namespace tessel;

// Destroyed at exit, which stops its timer thread.
static SystemClock timerClock;
// Never fulfilled; reachable so that it is not a leak.
static std::promise<void>* never = new std::promise<void>;

int main()
{
    auto queue = WorkQueue::create("com.tessel.helper.serial");
    if (queue->sync([] { return 6 * 7; }) != 42)
        return 2;
    timerClock.scheduleTimer(timerClock.now().addingTimeInterval(3600), queue, [] {});

    // Never released: their threads are still inside a block at exit.
    auto blocked = never->get_future().share();
    for (WorkQueue* busy : { queue.get(), &WorkQueue::main(), &WorkQueue::global() })
        busy->async([blocked] { blocked.wait(); });
    for (int index = 0; index < 100; ++index)
        queue->async([] {});
    return 0;
}
