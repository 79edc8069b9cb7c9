#pragma once

#include "platform/foundation/Date.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace tessel {

class WorkQueue;

// The time source of the server, real on a device and manual in tests, so that
// everything scheduled can be driven deterministically.
class Clock {
public:
    using TimerId = uint64_t;

    virtual ~Clock();

    virtual Date now() const = 0;

    // Runs action on queue once, at or after fireDate (at once when it is past).
    // A null queue means the global queue. Ids are never 0 and never reused.
    virtual TimerId scheduleTimer(
        Date fireDate, std::shared_ptr<WorkQueue> queue, std::function<void()> action)
        = 0;
    // No effect when the timer already fired or is unknown.
    virtual void cancelTimer(TimerId id) = 0;
};

} // namespace tessel
