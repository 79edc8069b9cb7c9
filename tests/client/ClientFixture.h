#pragma once

#include "ipc/IpcTestSupport.h"

#include "tessel/TesselServices.h"

namespace tessel {

using namespace std::chrono_literals;

using ipctest::Daemon;
template <typename T> using Inbox = ipctest::Mailbox<T>;

inline std::string summary(ClientErrorCode code, const std::string& operation)
{
    return std::to_string(static_cast<int>(code)) + " " + operation;
}

// The calls a recorder took, as "Method bundle".
inline std::vector<std::string> callsTo(const ipctest::Recorder& recorder)
{
    std::vector<std::string> calls;
    for (auto& call : recorder.calls.items())
        calls.push_back(call.method + " " + call.bundleIdentifier);
    return calls;
}

class ClientFixture : public ::testing::Test {
protected:
    void TearDown() override { privateBus.reset(); }

    const std::string& address() const { return busAddress; }

    ClientOptions options(ClientExecutor executor = {})
    {
        return { .busAddress = address(),
            .executor = std::move(executor),
            .errorHandler = [this](const ClientError& error) { errors.push(error); },
            .timeout = 10s };
    }
    std::vector<std::string> errorSummaries()
    {
        std::vector<std::string> summaries;
        for (auto& error : errors.items())
            summaries.push_back(summary(error.code, error.operation));
        return summaries;
    }

    std::unique_ptr<ipctest::PrivateBus> privateBus = std::make_unique<ipctest::PrivateBus>();
    // Kept for tests that stop the bus.
    const std::string busAddress = privateBus->address();
    Inbox<ClientError> errors;
};

} // namespace tessel
