#pragma once

#include <string>
#include <sys/types.h>

namespace tessel {

// One daemon per Library: an exclusive lock on a file in it, held for the
// life of the process (the kernel lets it go however the process ends).
class InstanceLock {
public:
    InstanceLock() = default;
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // False with error set when it cannot be had; holder is then the pid
    // written by the process that holds it (0 when unknown).
    bool acquire(const std::string& path, std::string& error, pid_t& holder);

private:
    int _fd = -1;
};

} // namespace tessel
