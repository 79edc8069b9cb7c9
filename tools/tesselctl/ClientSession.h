#pragma once

#include "tesselctl/CommandError.h"

#include <tessel/services/ClientOptions.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tessel::ctl {

// The client library's options for one command, and waits for its answers:
// a result, an error (refusals included), or the timeout. The clients must
// not outlive it.
class ClientSession {
public:
    ClientSession(std::string busAddress, std::chrono::milliseconds timeout);

    ClientOptions options() const;

    // Calls start with the function that takes the result, and waits for it.
    template <typename T, typename Start> T await(const std::string& operation, Start start)
    {
        auto slot = std::make_shared<std::optional<T>>();
        auto state = _state;
        start([state, slot](T value) {
            {
                std::lock_guard lock(state->mutex);
                *slot = std::move(value);
            }
            state->changed.notify_all();
        });
        std::unique_lock lock(state->mutex);
        // The library reports its own timeout first; this one is the backstop.
        state->changed.wait_for(
            lock, _timeout + std::chrono::seconds(2), [&] { return slot->has_value() || !state->errors.empty(); });
        if (slot->has_value())
            return std::move(**slot);
        throw failure(operation);
    }

    // For the calls whose completion says only that the daemon took them.
    template <typename Start> void awaitDone(const std::string& operation, Start start)
    {
        await<bool>(operation, [&](std::function<void(bool)> done) { start([done] { done(true); }); });
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<ClientError> errors;
    };

    // Called with the lock held.
    CommandError failure(const std::string& operation);

    std::string _busAddress;
    std::chrono::milliseconds _timeout;
    std::shared_ptr<State> _state = std::make_shared<State>();
};

} // namespace tessel::ctl
