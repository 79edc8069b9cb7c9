// A client in another language, written from the interface file alone, against
// the daemon side in a process of its own.
#include "ipc/ChildProcess.h"
#include "ipc/PrivateBus.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace tessel;

namespace {

TEST(IpcPythonClient, SpeaksTheRegistrarInterfaceFromTheXml)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    // Neither child may find the machine's own bus.
    std::map<std::string, std::string> environment { { "DBUS_SESSION_BUS_ADDRESS", bus.address() } };

    ChildProcess listener({ TESSEL_HELPER_DIR "/ipc_test_listener", bus.address() }, environment);
    ASSERT_TRUE(listener.started());
    ASSERT_EQ(listener.readLine(std::chrono::seconds(10)), std::optional<std::string>("READY"));

    ChildProcess client(
        { "/usr/bin/python3", TESSEL_SOURCE_DIR "/tests/ipc/registrar_client.py", bus.address() },
        environment);
    ASSERT_TRUE(client.started());
    auto output = client.readAll(std::chrono::seconds(30));
    auto status = client.wait(std::chrono::seconds(10));
    ASSERT_TRUE(output && status) << "the client did not finish";
    if (*status == 3)
        GTEST_SKIP() << *output;
    EXPECT_EQ(*status, 0) << *output;

    std::istringstream lines(*output);
    std::vector<std::string> got;
    for (std::string line; std::getline(lines, line);)
        got.push_back(line);
    EXPECT_EQ(got,
        (std::vector<std::string> {
            "types 42",
            "refused com.tamber.Tessel.Error.NotEntitled",
            "invalid com.tamber.Tessel.Error.InvalidArguments",
            "token 010203 com.example.app unicast",
        }));

    listener.stop();
    EXPECT_EQ(listener.wait(std::chrono::seconds(1)), std::optional<int>(0));
}

} // namespace
