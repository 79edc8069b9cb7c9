#pragma once

#include <string>

namespace tessel {

// Notices when the file that sets the time zone is replaced, written or
// removed. It watches the file's directory for the file's name, not the file:
// the file is usually a symbolic link that is replaced by renaming another
// one over it, and a watch on the file itself would stay with the old one.
class TimeZoneWatch {
public:
    // An empty path watches nothing.
    explicit TimeZoneWatch(std::string path);
    ~TimeZoneWatch();
    TimeZoneWatch(const TimeZoneWatch&) = delete;
    TimeZoneWatch& operator=(const TimeZoneWatch&) = delete;

    const std::string& path() const { return _path; }
    // Readable when something happened in the directory; -1 when nothing is watched.
    int descriptor() const { return _inotify; }
    // Reads what happened; true when it concerned the file.
    bool takeChange();

private:
    std::string _path;
    std::string _name;
    int _inotify = -1;
};

} // namespace tessel
