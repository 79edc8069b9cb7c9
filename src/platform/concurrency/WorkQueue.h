#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace tessel {

// Where a service's state lives: every service confines its state to one
// serial queue, posts its public operations to it and waits only where a
// caller needs an answer.
class WorkQueue : public std::enable_shared_from_this<WorkQueue> {
public:
    // A serial queue: one block at a time, in submission order. Its thread
    // starts with the first block and ends once the queue is released and empty.
    static std::shared_ptr<WorkQueue> create(std::string label);
    // Serial; carries modal alerts and device callbacks. Served by a thread of
    // its own unless the host gives it its main thread with runMainQueue().
    static WorkQueue& main();
    // Serves the main queue on the calling thread from now on, forever; blocks
    // posted before are run there too, in order.
    [[noreturn]] static void runMainQueue();
    // Concurrent pool for work that needs no ordering.
    static WorkQueue& global();

    ~WorkQueue();
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    const std::string& label() const { return _label; }
    bool isSerial() const { return _kind == Kind::Serial; }

    void async(std::function<void()> work);

    // Runs work on this queue after everything posted before it and returns its
    // value; an exception thrown by work is rethrown here. Waiting on the queue
    // the caller runs on, or on one that waits on the caller, aborts.
    template <typename F> auto sync(F&& work) -> std::invoke_result_t<F>
    {
        using Result = std::invoke_result_t<F>;
        if constexpr (std::is_void_v<Result>) {
            std::function<void()> body = [&] { std::forward<F>(work)(); };
            syncInvoke(body);
        } else if constexpr (std::is_reference_v<Result>) {
            std::remove_reference_t<Result>* result = nullptr;
            std::function<void()> body = [&] { result = &std::forward<F>(work)(); };
            syncInvoke(body);
            return static_cast<Result>(*result);
        } else {
            std::optional<Result> result;
            std::function<void()> body = [&] { result.emplace(std::forward<F>(work)()); };
            syncInvoke(body);
            return std::move(*result);
        }
    }

    // True while this thread runs a block of this queue, posted or synced.
    bool isCurrent() const;
    // The queue whose block this thread is running, or null.
    static WorkQueue* current();

    // Returns once no block is queued or running anywhere. A block that posts
    // elsewhere before it ends keeps the count up, so chains of hops settle too.
    // Must not be called from a queue.
    static void waitUntilIdle();

private:
    struct Serial;
    struct Pool;
    enum class Kind { Serial, Concurrent };
    WorkQueue(std::string label, Kind kind);

    void syncInvoke(const std::function<void()>& work);
    void checkSyncAllowed() const;

    std::string _label;
    Kind _kind;
    std::shared_ptr<Serial> _serial;
};

namespace detail {

    inline const WorkQueue* queuePointer(const WorkQueue& queue) { return &queue; }
    inline const WorkQueue* queuePointer(const std::shared_ptr<WorkQueue>& queue) { return queue.get(); }
    inline const WorkQueue* queuePointer(const std::shared_ptr<const WorkQueue>& queue)
    {
        return queue.get();
    }

    [[noreturn]] void queueAssertionFailed(
        const char* file, int line, const char* expression, const WorkQueue* queue, bool expectedOnQueue);

} // namespace detail

} // namespace tessel

// Confinement checks stay on in release builds: a service touched off its
// queue corrupts state quietly, an abort at the spot is far cheaper to debug.
#define KT_ASSERT_ON_QUEUE(queue)                                                                            \
    do {                                                                                                     \
        const ::tessel::WorkQueue* ktQueue = ::tessel::detail::queuePointer(queue);                          \
        if (!ktQueue || !ktQueue->isCurrent())                                                               \
            ::tessel::detail::queueAssertionFailed(__FILE__, __LINE__, #queue, ktQueue, true);               \
    } while (0)

#define KT_ASSERT_NOT_ON_QUEUE(queue)                                                                        \
    do {                                                                                                     \
        const ::tessel::WorkQueue* ktQueue = ::tessel::detail::queuePointer(queue);                          \
        if (!ktQueue || ktQueue->isCurrent())                                                                \
            ::tessel::detail::queueAssertionFailed(__FILE__, __LINE__, #queue, ktQueue, false);              \
    } while (0)
