#pragma once

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tessel {

// A dbus-daemon of the run's own on a socket in a temporary directory; it dies
// with the process at the latest.
class BenchBus {
public:
    BenchBus()
    {
        char directory[] = "/tmp/tessel-bench-XXXXXX";
        if (!mkdtemp(directory))
            return;
        _directory = directory;
        int output[2];
        if (pipe(output) != 0)
            return;
        std::string listen = "--address=unix:dir=" + _directory;
        _pid = fork();
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(output[1], STDOUT_FILENO);
            close(output[0]);
            execlp("dbus-daemon", "dbus-daemon", "--session", listen.c_str(), "--nofork", "--print-address",
                static_cast<char*>(nullptr));
            _exit(127);
        }
        close(output[1]);
        char buffer[512];
        size_t length = 0;
        pollfd readable { output[0], POLLIN, 0 };
        while (length < sizeof buffer - 1 && poll(&readable, 1, 10'000) > 0) {
            auto count = read(output[0], buffer + length, sizeof buffer - 1 - length);
            if (count <= 0)
                break;
            length += static_cast<size_t>(count);
            if (memchr(buffer, '\n', length))
                break;
        }
        close(output[0]);
        _address.assign(buffer, length);
        _address = _address.substr(0, _address.find('\n'));
    }
    ~BenchBus()
    {
        if (_pid > 0) {
            kill(_pid, SIGTERM);
            waitpid(_pid, nullptr, 0);
        }
        if (!_directory.empty())
            rmdir(_directory.c_str());
    }

    const std::string& address() const { return _address; }

private:
    std::string _directory;
    pid_t _pid = -1;
    std::string _address;
};

} // namespace tessel
