#include "tesselctl/ClientSession.h"

namespace tessel::ctl {

ClientSession::ClientSession(std::string busAddress, std::chrono::milliseconds timeout)
    : _busAddress(std::move(busAddress))
    , _timeout(timeout)
{
}

ClientOptions ClientSession::options() const
{
    return { .busAddress = _busAddress,
        .executor = {},
        .errorHandler =
            [state = _state](const ClientError& error) {
                {
                    std::lock_guard lock(state->mutex);
                    state->errors.push_back(error);
                }
                state->changed.notify_all();
            },
        .timeout = _timeout,
        .reportRefusals = true };
}

CommandError ClientSession::failure(const std::string& operation)
{
    if (_state->errors.empty())
        return { ExitCode::Timeout, "no answer in time to " + operation };
    ClientError error = std::move(_state->errors.front());
    _state->errors.pop_front();
    return CommandError::fromClient(error);
}

} // namespace tessel::ctl
