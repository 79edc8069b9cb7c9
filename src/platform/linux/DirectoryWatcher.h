#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace tessel {

// Watches a directory and its immediate subdirectories with inotify: entries
// created, deleted, moved or written. Changes are coalesced; the handler runs
// on the watcher's own thread once quietPeriod passes without another one.
// Destroying the watcher stops it; a handler that is running finishes first
// (when the handler itself destroys the watcher, the thread winds down alone).
class DirectoryWatcher {
public:
    DirectoryWatcher(std::string path, std::function<void()> handler,
        std::chrono::milliseconds quietPeriod = std::chrono::milliseconds(100));
    ~DirectoryWatcher();
    DirectoryWatcher(const DirectoryWatcher&) = delete;
    DirectoryWatcher& operator=(const DirectoryWatcher&) = delete;

    // False when inotify could not be set up; error() says why.
    bool isWatching() const { return _thread.joinable(); }
    const std::string& error() const { return _error; }

    // More subdirectories than this are not watched individually.
    static constexpr size_t maximumWatchCount = 4096;

private:
    struct State;

    std::shared_ptr<State> _state;
    std::string _error;
    std::thread _thread;
};

} // namespace tessel
