#include "tesselctl/EventInbox.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace tessel::ctl {

EventInbox::EventInbox()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    _signals = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    _wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

EventInbox::~EventInbox()
{
    close(_signals);
    close(_wake);
}

void EventInbox::post(Work work)
{
    {
        std::lock_guard lock(_mutex);
        _work.push_back(std::move(work));
    }
    uint64_t one = 1;
    [[maybe_unused]] auto written = write(_wake, &one, sizeof one);
}

std::optional<EventInbox::Work> EventInbox::next(Deadline deadline)
{
    while (!_interrupted) {
        {
            std::lock_guard lock(_mutex);
            if (!_work.empty()) {
                Work work = std::move(_work.front());
                _work.pop_front();
                return work;
            }
        }
        int timeout = -1;
        if (deadline) {
            auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return std::nullopt;
            timeout = static_cast<int>(std::min<int64_t>(left.count(), 60'000));
        }
        pollfd fds[] = { { _signals, POLLIN, 0 }, { _wake, POLLIN, 0 } };
        if (poll(fds, 2, timeout) < 0)
            continue;
        if (fds[0].revents & POLLIN) {
            signalfd_siginfo info;
            [[maybe_unused]] auto read = ::read(_signals, &info, sizeof info);
            _interrupted = true;
        }
        if (fds[1].revents & POLLIN) {
            uint64_t count;
            [[maybe_unused]] auto read = ::read(_wake, &count, sizeof count);
        }
    }
    return std::nullopt;
}

} // namespace tessel::ctl
