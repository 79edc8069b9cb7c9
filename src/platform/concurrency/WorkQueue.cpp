#include "platform/concurrency/WorkQueue.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <vector>

namespace tessel {

namespace {

    // The queue whose block this thread runs, and every serial queue that cannot
    // make progress until it finishes: its own, plus those blocked in sync on the
    // chain that led here. A sync to one of them could never return.
    thread_local WorkQueue* currentQueue = nullptr;
    thread_local std::vector<const WorkQueue*> heldQueues;

    [[noreturn]] void fail(const char* message, const std::string& label)
    {
        fprintf(stderr, "WorkQueue: %s (queue '%s')\n", message, label.c_str());
        fflush(stderr);
        abort();
    }

    // Blocks posted but not finished, on every queue. Only the transition to zero
    // takes the lock, so posting stays cheap. Leaked so that threads still running
    // at process exit never touch a destroyed mutex.
    struct InFlight {
        std::atomic<uint64_t> count { 0 };
        std::mutex mutex;
        std::condition_variable idle;
    };

    InFlight& inFlight()
    {
        static auto* state = new InFlight;
        return *state;
    }

    void beginWork() { inFlight().count.fetch_add(1, std::memory_order_relaxed); }

    void endWork()
    {
        auto& state = inFlight();
        if (state.count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            std::lock_guard lock(state.mutex);
            state.idle.notify_all();
        }
    }

    void runPosted(const std::function<void()>& work, const std::string& label)
    {
        try {
            work();
        } catch (const std::exception& error) {
            fprintf(stderr, "WorkQueue: uncaught exception in a block of queue '%s': %s\n", label.c_str(),
                error.what());
            fflush(stderr);
            abort();
        } catch (...) {
            fail("uncaught exception in a block", label);
        }
    }

    void nameThread(const std::string& label)
    {
        // The kernel keeps 15 characters; the end of a reverse-domain label says most.
        std::string name = label.size() > 15 ? label.substr(label.size() - 15) : label;
        pthread_setname_np(pthread_self(), name.c_str());
    }

    template <typename Function> void startDetachedThread(Function&& function, const std::string& label)
    {
        try {
            std::thread(std::forward<Function>(function)).detach();
        } catch (const std::system_error&) {
            fail("cannot start a thread", label);
        }
    }

} // namespace

struct WorkQueue::Serial : std::enable_shared_from_this<Serial> {
    struct Item {
        std::function<void()> work;
        // Keeps the queue alive while it has work.
        std::shared_ptr<WorkQueue> queue;
        std::vector<const WorkQueue*> held;
    };

    explicit Serial(std::string label)
        : label(std::move(label))
    {
    }

    void enqueue(Item item)
    {
        beginWork();
        std::lock_guard lock(mutex);
        items.push_back(std::move(item));
        queued.fetch_add(1, std::memory_order_release);
        if (!started) {
            started = true;
            threadServes = true;
            startDetachedThread([self = shared_from_this()] { self->run(); }, label);
        } else
            ready.notify_one();
    }

    // The host's thread takes over from ours, which finishes the block it runs
    // and leaves; what was posted before stays queued, in order.
    [[noreturn]] void runHere()
    {
        {
            std::unique_lock lock(mutex);
            if (hostServes)
                fail("the queue is already served by the host's thread", label);
            hostServes = true;
            ready.notify_all();
            handedOver.wait(lock, [&] { return !threadServes; });
            started = true;
        }
        run(true);
        fail("a queue served by the host's thread was released", label);
    }

    void release()
    {
        std::lock_guard lock(mutex);
        released = true;
        ready.notify_one();
    }

    void run(bool host = false)
    {
        if (!host)
            nameThread(label);
        std::unique_lock lock(mutex);
        for (;;) {
            if (items.empty())
                spinBeforeSleeping(lock);
            auto woken = [&] { return !items.empty() || released || (hostServes && !host); };
            // A queue with nothing to do gives its thread back; the next block starts another.
            if (!host && !ready.wait_for(lock, idleThreadLifetime, woken)) {
                started = threadServes = false;
                return;
            }
            if (host)
                ready.wait(lock, woken);
            if (hostServes && !host) {
                threadServes = false;
                handedOver.notify_all();
                return;
            }
            if (items.empty())
                return;
            Item item = std::move(items.front());
            items.pop_front();
            queued.fetch_sub(1, std::memory_order_relaxed);
            lock.unlock();

            currentQueue = item.queue.get();
            heldQueues = std::move(item.held);
            heldQueues.push_back(item.queue.get());
            runPosted(item.work, label);
            currentQueue = nullptr;
            heldQueues.clear();
            // May drop the last reference to the queue, which releases us.
            item = {};
            endWork();

            lock.lock();
        }
    }

    // Work often comes back within microseconds (a reply from the queue just
    // asked); waking a sleeping thread costs far more than staying up briefly.
    void spinBeforeSleeping(std::unique_lock<std::mutex>& lock)
    {
        lock.unlock();
        auto until = std::chrono::steady_clock::now() + spinBeforeSleep;
        while (queued.load(std::memory_order_acquire) == 0 && std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
        lock.lock();
    }

    static constexpr std::chrono::microseconds spinBeforeSleep { 50 };
    static constexpr std::chrono::seconds idleThreadLifetime { 10 };

    const std::string label;
    std::mutex mutex;
    std::condition_variable ready;
    std::condition_variable handedOver;
    std::deque<Item> items;
    std::atomic<size_t> queued { 0 };
    bool started = false;
    bool released = false;
    bool threadServes = false;
    bool hostServes = false;
};

// Grows when every worker is busy, so a block waiting on another global block
// cannot starve it; bounded because each worker is a thread for good.
struct WorkQueue::Pool {
    static constexpr size_t maximumWorkers = 64;

    static Pool& shared()
    {
        static auto* pool = new Pool;
        return *pool;
    }

    void enqueue(std::function<void()> work)
    {
        beginWork();
        std::lock_guard lock(mutex);
        items.push_back(std::move(work));
        if (items.size() > idleWorkers && workers < maximumWorkers) {
            ++workers;
            startDetachedThread([this] { run(); }, "global");
        } else
            ready.notify_one();
    }

    void run()
    {
        nameThread("global");
        WorkQueue& queue = WorkQueue::global();
        std::unique_lock lock(mutex);
        for (;;) {
            ++idleWorkers;
            ready.wait(lock, [&] { return !items.empty(); });
            --idleWorkers;
            std::function<void()> work = std::move(items.front());
            items.pop_front();
            lock.unlock();

            currentQueue = &queue;
            runPosted(work, queue.label());
            currentQueue = nullptr;
            work = nullptr;
            endWork();

            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable ready;
    std::deque<std::function<void()>> items;
    size_t workers = 0;
    size_t idleWorkers = 0;
};

WorkQueue::WorkQueue(std::string label, Kind kind)
    : _label(std::move(label))
    , _kind(kind)
{
    if (kind == Kind::Serial)
        _serial = std::make_shared<Serial>(_label);
}

WorkQueue::~WorkQueue()
{
    if (_serial)
        _serial->release();
}

std::shared_ptr<WorkQueue> WorkQueue::create(std::string label)
{
    return std::shared_ptr<WorkQueue>(new WorkQueue(std::move(label), Kind::Serial));
}

// Both live for the whole process: never destroyed, so late blocks at exit are harmless.
WorkQueue& WorkQueue::main()
{
    static auto* queue = new std::shared_ptr<WorkQueue>(create("main"));
    return **queue;
}

void WorkQueue::runMainQueue() { main()._serial->runHere(); }

WorkQueue& WorkQueue::global()
{
    static auto* queue = new std::shared_ptr<WorkQueue>(new WorkQueue("global", Kind::Concurrent));
    return **queue;
}

void WorkQueue::async(std::function<void()> work)
{
    if (!work)
        return;
    if (_kind == Kind::Concurrent)
        Pool::shared().enqueue(std::move(work));
    else
        _serial->enqueue({ std::move(work), shared_from_this(), {} });
}

void WorkQueue::checkSyncAllowed() const
{
    if (_kind == Kind::Concurrent)
        return;
    if (currentQueue == this)
        fail("sync to the queue the caller is running on would deadlock", _label);
    if (std::find(heldQueues.begin(), heldQueues.end(), this) != heldQueues.end())
        fail("sync to a queue that is itself waiting on the caller would deadlock", _label);
}

void WorkQueue::syncInvoke(const std::function<void()>& work)
{
    checkSyncAllowed();
    std::exception_ptr error;
    if (_kind == Kind::Concurrent) {
        // No order to respect: run it here, which also spares a pool thread.
        beginWork();
        WorkQueue* caller = currentQueue;
        currentQueue = this;
        try {
            work();
        } catch (...) {
            error = std::current_exception();
        }
        currentQueue = caller;
        endWork();
    } else {
        std::mutex mutex;
        std::condition_variable finished;
        bool done = false;
        auto body = [&] {
            try {
                work();
            } catch (...) {
                error = std::current_exception();
            }
            // Notify under the lock: the caller's stack frame ends as soon as it sees done.
            std::lock_guard lock(mutex);
            done = true;
            finished.notify_one();
        };
        _serial->enqueue({ body, shared_from_this(), heldQueues });
        std::unique_lock lock(mutex);
        finished.wait(lock, [&] { return done; });
    }
    if (error)
        std::rethrow_exception(error);
}

bool WorkQueue::isCurrent() const { return currentQueue == this; }

WorkQueue* WorkQueue::current() { return currentQueue; }

void WorkQueue::waitUntilIdle()
{
    if (currentQueue)
        fail("waitUntilIdle called from a block would wait for itself", currentQueue->label());
    auto& state = inFlight();
    std::unique_lock lock(state.mutex);
    state.idle.wait(lock, [&] { return state.count.load(std::memory_order_acquire) == 0; });
}

namespace detail {

    void queueAssertionFailed(
        const char* file, int line, const char* expression, const WorkQueue* queue, bool expectedOnQueue)
    {
        WorkQueue* current = WorkQueue::current();
        fprintf(stderr, "%s:%d: %s: expected %s queue '%s', running on %s%s%s\n", file, line, expression,
            expectedOnQueue ? "to run on" : "not to run on", queue ? queue->label().c_str() : "(null)",
            current ? "queue '" : "no queue", current ? current->label().c_str() : "", current ? "'" : "");
        fflush(stderr);
        abort();
    }

} // namespace detail

} // namespace tessel
