// A client in another language, written from the interface file alone.
#include "ipc/IpcTestSupport.h"

using namespace tessel::ipctest;

namespace {

TEST(IpcPythonClient, SpeaksTheRegistrarInterfaceFromTheXml)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    Daemon daemon(bus.address());
    // An observing client gets one token, addressed to it alone.
    daemon.registrar().onObserving = [](const std::string& bundleIdentifier) {
        if (auto connection = tessel::IpcConnection::currentConnection())
            connection->remoteObjectProxy<tessel::KTSNotificationRegistrarClientProtocol>()
                ->didReceiveDeviceToken({ 1, 2, 3 }, bundleIdentifier);
    };
    ASSERT_TRUE(daemon.service->start());

    ChildProcess client(
        { "/usr/bin/python3", TESSEL_SOURCE_DIR "/tests/ipc/registrar_client.py", bus.address() });
    auto output = client.read(30s, true);
    ASSERT_TRUE(output) << "the client did not finish";
    auto status = client.exitStatus();
    if (status == 3)
        GTEST_SKIP() << *output;
    EXPECT_EQ(status, 0) << *output;
    EXPECT_EQ(*output,
        "types 42\n"
        "refused com.tamber.Tessel.Error.NotEntitled\n"
        "invalid com.tamber.Tessel.Error.InvalidArguments\n"
        "observing\n"
        "token 010203 com.example.app unicast\n");
}

} // namespace
