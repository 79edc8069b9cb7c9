#include "platform/linux/TimeZoneWatch.h"

#include "platform/Platform.h"
#include "platform/files/Path.h"

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace tessel {

namespace {

    constexpr uint32_t watchedEvents
        = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_ONLYDIR;

} // namespace

TimeZoneWatch::TimeZoneWatch(std::string path)
    : _path(std::move(path))
    , _name(Path::lastComponent(_path))
{
    if (_path.empty() || _name.empty())
        return;
    _inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    auto directory = Path::deletingLastComponent(_path);
    if (_inotify >= 0 && inotify_add_watch(_inotify, directory.c_str(), watchedEvents) >= 0)
        return;
    int error = errno;
    Platform::log(LogPriority::Warning,
        "Time zone changes go unnoticed: cannot watch " + directory + ": " + std::strerror(error));
    if (_inotify >= 0)
        close(_inotify);
    _inotify = -1;
}

TimeZoneWatch::~TimeZoneWatch()
{
    if (_inotify >= 0)
        close(_inotify);
}

bool TimeZoneWatch::takeChange()
{
    alignas(inotify_event) char buffer[4096];
    bool changed = false;
    ssize_t length;
    while ((length = read(_inotify, buffer, sizeof buffer)) > 0) {
        for (ssize_t offset = 0; offset + static_cast<ssize_t>(sizeof(inotify_event)) <= length;) {
            auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += sizeof(inotify_event) + event->len;
            // An overflow may have hidden the file's own event.
            if ((event->mask & IN_Q_OVERFLOW) || (event->len > 0 && _name == event->name))
                changed = true;
        }
    }
    return changed;
}

} // namespace tessel
