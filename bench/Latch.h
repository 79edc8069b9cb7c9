#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace tessel {

// Lets the measuring thread wait for one answer at a time.
class Latch {
public:
    // Notified unlocked, so that the woken thread does not wait for the lock.
    void signal()
    {
        {
            std::lock_guard lock(_lock);
            ++_count;
        }
        _changed.notify_all();
    }
    void waitFor(int64_t count)
    {
        std::unique_lock lock(_lock);
        _changed.wait(lock, [&] { return _count >= count; });
    }
    // False when the count was not reached in time.
    bool waitFor(int64_t count, std::chrono::milliseconds timeout)
    {
        std::unique_lock lock(_lock);
        return _changed.wait_for(lock, timeout, [&] { return _count >= count; });
    }

private:
    std::mutex _lock;
    std::condition_variable _changed;
    int64_t _count = 0;
};

} // namespace tessel
