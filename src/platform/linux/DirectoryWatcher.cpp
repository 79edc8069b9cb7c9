#include "platform/linux/DirectoryWatcher.h"

#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace tessel {

namespace {

    constexpr uint32_t watchedEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE
        | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

// Owned jointly with the thread, so a handler that destroys its watcher leaves
// the thread something valid to finish with.
struct DirectoryWatcher::State {
    std::string path;
    std::function<void()> handler;
    std::chrono::milliseconds quietPeriod;
    int inotify = -1;
    int wake = -1;
    int rootWatch = -1;
    // Subdirectory watches by descriptor.
    std::map<int, std::string> watches;

    ~State()
    {
        if (inotify >= 0)
            close(inotify);
        if (wake >= 0)
            close(wake);
    }

    void watchSubdirectories()
    {
        auto names = FileManager::contentsOfDirectoryAtPath(path);
        if (!names)
            return;
        for (const auto& name : *names) {
            if (watches.size() >= maximumWatchCount)
                break;
            auto child = Path::appendingComponent(path, name);
            bool isDirectory = false;
            if (FileManager::isSymbolicLinkAtPath(child)
                || !FileManager::fileExistsAtPath(child, &isDirectory) || !isDirectory)
                continue;
            int descriptor = inotify_add_watch(inotify, child.c_str(), watchedEvents);
            if (descriptor >= 0 && descriptor != rootWatch)
                watches[descriptor] = child;
        }
    }

    // True when something changed.
    bool drainEvents(bool& directoriesChanged)
    {
        alignas(struct inotify_event) char buffer[16 * 1024];
        bool changed = false;
        while (true) {
            ssize_t length = read(inotify, buffer, sizeof buffer);
            if (length <= 0)
                return changed;
            for (ssize_t offset = 0; offset + static_cast<ssize_t>(sizeof(inotify_event)) <= length;) {
                auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                offset += sizeof(inotify_event) + event->len;
                if (event->mask & IN_IGNORED) {
                    watches.erase(event->wd);
                    continue;
                }
                changed = true;
                if (event->mask & IN_Q_OVERFLOW)
                    directoriesChanged = true;
                else if (event->wd == rootWatch && (event->mask & IN_ISDIR)
                    && (event->mask & (IN_CREATE | IN_MOVED_TO)))
                    directoriesChanged = true;
            }
        }
    }

    void run()
    {
        using Clock = std::chrono::steady_clock;
        bool pending = false;
        Clock::time_point lastChange;
        while (true) {
            int timeout = -1;
            if (pending) {
                auto remaining = quietPeriod
                    - std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lastChange);
                if (remaining.count() <= 0) {
                    pending = false;
                    handler();
                    continue;
                }
                timeout = static_cast<int>(remaining.count());
            }
            pollfd descriptors[2] = { { wake, POLLIN, 0 }, { inotify, POLLIN, 0 } };
            int ready = poll(descriptors, 2, timeout);
            if (ready < 0 && errno != EINTR)
                return;
            if (descriptors[0].revents)
                return;
            if (descriptors[1].revents & POLLIN) {
                bool directoriesChanged = false;
                if (drainEvents(directoriesChanged)) {
                    pending = true;
                    lastChange = Clock::now();
                }
                if (directoriesChanged)
                    watchSubdirectories();
            } else if (descriptors[1].revents) {
                return;
            }
        }
    }
};

DirectoryWatcher::DirectoryWatcher(
    std::string path, std::function<void()> handler, std::chrono::milliseconds quietPeriod)
    : _state(std::make_shared<State>())
{
    auto& state = *_state;
    state.path = std::move(path);
    state.handler = std::move(handler);
    state.quietPeriod = quietPeriod;
    state.inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    state.wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (state.inotify < 0 || state.wake < 0) {
        _error = std::string("inotify: ") + std::strerror(errno);
        return;
    }
    state.rootWatch = inotify_add_watch(state.inotify, state.path.c_str(), watchedEvents);
    if (state.rootWatch < 0) {
        _error = "inotify_add_watch " + state.path + ": " + std::strerror(errno);
        return;
    }
    state.watchSubdirectories();
    _thread = std::thread([state = _state] { state->run(); });
}

DirectoryWatcher::~DirectoryWatcher()
{
    if (!_thread.joinable())
        return;
    uint64_t one = 1;
    [[maybe_unused]] auto written = write(_state->wake, &one, sizeof one);
    if (_thread.get_id() == std::this_thread::get_id())
        _thread.detach();
    else
        _thread.join();
}

} // namespace tessel
