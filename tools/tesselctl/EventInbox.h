#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace tessel::ctl {

// Work the clients' thread hands to the main thread, which waits for it, for
// SIGINT or SIGTERM, or for a deadline. It blocks those signals in the
// threads started after it, the clients' among them, so create it first.
class EventInbox {
public:
    using Work = std::function<void()>;
    using Deadline = std::optional<std::chrono::steady_clock::time_point>;

    EventInbox();
    ~EventInbox();
    EventInbox(const EventInbox&) = delete;
    EventInbox& operator=(const EventInbox&) = delete;

    // From any thread.
    void post(Work work);
    // The next work; none once a signal came or the deadline passed.
    std::optional<Work> next(Deadline deadline);
    bool interrupted() const { return _interrupted; }

private:
    int _signals = -1;
    int _wake = -1;
    bool _interrupted = false;
    std::mutex _mutex;
    std::deque<Work> _work;
};

} // namespace tessel::ctl
