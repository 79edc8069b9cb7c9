#pragma once

#include "client/FakeDaemons.h"
#include "ipc/PrivateBus.h"

#include "tessel/TesselServices.h"

#include <gtest/gtest.h>

namespace tessel {

inline std::string summary(ClientErrorCode code, const std::string& operation)
{
    return std::to_string(static_cast<int>(code)) + " " + operation;
}

class ClientFixture : public ::testing::Test {
protected:
    // Stopped, bounded in time, however the test ended.
    void TearDown() override { privateBus.reset(); }

    const std::string& address() const { return busAddress; }

    ClientOptions options(ClientExecutor executor = {})
    {
        return {
            .busAddress = address(),
            .executor = std::move(executor),
            .errorHandler = [this](const ClientError& error) { errors.push(error); },
            .timeout = 10s,
        };
    }

    // The codes and operations of the errors reported so far.
    std::vector<std::string> errorSummaries()
    {
        std::vector<std::string> summaries;
        for (auto& error : errors.items())
            summaries.push_back(summary(error.code, error.operation));
        return summaries;
    }

    std::unique_ptr<PrivateBus> privateBus = std::make_unique<PrivateBus>();
    // Kept for tests that stop the bus.
    const std::string busAddress = privateBus->address();
    Inbox<ClientError> errors;
};

} // namespace tessel
