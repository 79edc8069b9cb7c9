#pragma once

#include <tessel/services/ClientOptions.h>

#include <stdexcept>
#include <string>

namespace tessel::ctl {

// What the process answers; scripts tell the failures apart by it.
enum class ExitCode : int {
    Success = 0,
    // The daemon refused or failed the request.
    Failed = 1,
    Usage = 2,
    // The daemon is not running, or the bus cannot be reached.
    NoDaemon = 3,
    // No answer in time.
    Timeout = 4,
};

// A failure that ends the command, with the exit code it deserves.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode code, const std::string& message);

    static CommandError usage(const std::string& message) { return { ExitCode::Usage, message }; }
    static CommandError fromClient(const ClientError& error);

    ExitCode code() const { return _code; }

private:
    ExitCode _code;
};

} // namespace tessel::ctl
