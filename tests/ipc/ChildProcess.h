#pragma once

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace tessel {

// A program the test starts, with its standard output on a pipe. Every wait
// is bounded; whatever still runs at the end is terminated, then killed.
class ChildProcess {
public:
    using Milliseconds = std::chrono::milliseconds;

    // environment adds to (or replaces in) the test's own; quiet sends standard error to /dev/null.
    explicit ChildProcess(const std::vector<std::string>& arguments,
        const std::map<std::string, std::string>& environment = {}, bool quiet = false)
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            return;
        std::vector<std::string> variables;
        for (char** entry = environ; *entry; ++entry) {
            std::string variable = *entry;
            if (!environment.count(variable.substr(0, variable.find('='))))
                variables.push_back(std::move(variable));
        }
        for (const auto& [name, value] : environment)
            variables.push_back(name + "=" + value);
        std::vector<char*> argv, envp;
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        for (const auto& variable : variables)
            envp.push_back(const_cast<char*>(variable.c_str()));
        envp.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        if (quiet)
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&_pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0)
            _pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        _output = fds[0];
        if (_pid > 0)
            _pidfd = static_cast<int>(syscall(SYS_pidfd_open, _pid, 0));
    }
    ~ChildProcess()
    {
        stop();
        if (_output >= 0)
            close(_output);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool started() const { return _pid > 0 && _pidfd >= 0; }
    pid_t pid() const { return _pid; }

    // The next line of output without its newline; absent at the end or when none came in time.
    std::optional<std::string> readLine(Milliseconds timeout)
    {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            if (auto end = _buffer.find('\n'); end != std::string::npos) {
                auto line = _buffer.substr(0, end);
                _buffer.erase(0, end + 1);
                return line;
            }
            if (!fill(deadline))
                return std::nullopt;
        }
    }

    // Everything up to the end of output; absent when it did not end in time.
    std::optional<std::string> readAll(Milliseconds timeout)
    {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (fill(deadline)) { }
        if (!_ended)
            return std::nullopt;
        return std::exchange(_buffer, {});
    }

    // The exit status; absent when the child did not end in time.
    std::optional<int> wait(Milliseconds timeout)
    {
        if (_status)
            return _status;
        if (!started())
            return std::nullopt;
        pollfd fd { _pidfd, POLLIN, 0 };
        if (poll(&fd, 1, static_cast<int>(timeout.count())) <= 0)
            return std::nullopt;
        int status = 0;
        if (waitpid(_pid, &status, 0) != _pid)
            return std::nullopt;
        _status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        close(_pidfd);
        _pidfd = -1;
        return _status;
    }

    void stop()
    {
        if (!started() || _status)
            return;
        kill(_pid, SIGTERM);
        if (!wait(Milliseconds(5000))) {
            kill(_pid, SIGKILL);
            wait(Milliseconds(5000));
        }
    }

private:
    bool fill(std::chrono::steady_clock::time_point deadline)
    {
        if (_ended || _output < 0)
            return false;
        auto left = std::chrono::duration_cast<Milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd fd { _output, POLLIN, 0 };
        if (left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0)
            return false;
        char chunk[4096];
        auto count = read(_output, chunk, sizeof chunk);
        if (count <= 0) {
            _ended = true;
            return false;
        }
        _buffer.append(chunk, static_cast<size_t>(count));
        return true;
    }

    pid_t _pid = -1;
    int _pidfd = -1;
    int _output = -1;
    bool _ended = false;
    std::string _buffer;
    std::optional<int> _status;
};

} // namespace tessel
