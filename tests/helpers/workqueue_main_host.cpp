// Gives the main queue the process's main thread, as a host with its own
// event loop would, after blocks were already posted to it. Exits 0 once a
// block runs on the main thread with every block before it run in order.
#include "platform/concurrency/WorkQueue.h"

#include <atomic>
#include <cstdlib>
#include <thread>

using namespace tessel;

static std::thread::id mainThread;
static std::atomic<int> nextIndex { 0 };

static void postStep(int index)
{
    WorkQueue::main().async([index] {
        if (nextIndex++ != index)
            std::exit(4);
        if (std::this_thread::get_id() == mainThread && WorkQueue::main().isCurrent())
            std::exit(0);
        if (index > 1000000)
            std::exit(5);
        postStep(index + 1);
    });
}

int main()
{
    mainThread = std::this_thread::get_id();
    postStep(0);
    WorkQueue::runMainQueue();
}
