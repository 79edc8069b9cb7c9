#include "tesselctl/CommandError.h"

namespace tessel::ctl {

CommandError::CommandError(ExitCode code, const std::string& message)
    : std::runtime_error(message)
    , _code(code)
{
}

CommandError CommandError::fromClient(const ClientError& error)
{
    switch (error.code) {
    case ClientErrorCode::NoBus:
        return { ExitCode::NoDaemon, "cannot reach the bus: " + error.message };
    case ClientErrorCode::NoDaemon:
        return { ExitCode::NoDaemon, "the daemon is not running" };
    case ClientErrorCode::Timeout:
        return { ExitCode::Timeout, "no answer in time to " + error.operation };
    case ClientErrorCode::NotEntitled:
        return { ExitCode::Failed, "not entitled to " + error.operation };
    case ClientErrorCode::LimitExceeded:
        return { ExitCode::Failed, error.operation + " exceeds a limit of the daemon: " + error.message };
    case ClientErrorCode::InvalidArguments:
        return { ExitCode::Failed, "invalid arguments to " + error.operation + ": " + error.message };
    case ClientErrorCode::MalformedAnswer:
        return { ExitCode::Failed, "unreadable answer to " + error.operation + ": " + error.message };
    case ClientErrorCode::Failed:
        break;
    }
    return { ExitCode::Failed, error.operation + " failed: " + error.message };
}

} // namespace tessel::ctl
