#include "InstanceLock.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tessel {

InstanceLock::~InstanceLock()
{
    if (_fd >= 0)
        close(_fd);
}

bool InstanceLock::acquire(const std::string& path, std::string& error, pid_t& holder)
{
    holder = 0;
    _fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (_fd < 0) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    if (flock(_fd, LOCK_EX | LOCK_NB) != 0) {
        char text[32] = {};
        if (pread(_fd, text, sizeof text - 1, 0) > 0)
            holder = static_cast<pid_t>(std::strtol(text, nullptr, 10));
        error = errno == EWOULDBLOCK ? std::string("in use") : path + ": " + std::strerror(errno);
        close(_fd);
        _fd = -1;
        return false;
    }
    auto pid = std::to_string(getpid()) + "\n";
    if (ftruncate(_fd, 0) != 0 || pwrite(_fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace tessel
