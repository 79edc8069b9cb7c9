// Publishes the registrar and the scheduler on the bus whose address is its
// one argument, with the tests' recording objects: NotificationTypes answers
// 42 ("refuse" is refused), settings come back as sent, and an observing
// client gets one device token (01 02 03) addressed to it alone. Prints READY
// once both names are owned, and serves until SIGTERM or SIGINT.
#include "../ipc/RecordingServer.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"

#include <csignal>
#include <cstdio>
#include <pthread.h>

using namespace tessel;
using namespace tessel::ipctest;

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s BUS-ADDRESS\n", argv[0]);
        return 2;
    }
    // Blocked before any thread starts, so that only sigwait sees them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->registrar->onObserving = [](const std::string& bundleIdentifier) {
        if (auto connection = IpcConnection::currentConnection())
            connection->remoteObjectProxy<KTSNotificationRegistrarClientProtocol>()->didReceiveDeviceToken(
                { 1, 2, 3 }, bundleIdentifier);
    };
    auto service = std::make_shared<DbusIpcService>(argv[1]);
    if (!service->start())
        return 1;
    std::vector<std::shared_ptr<IpcListener>> listeners;
    for (auto name : { KTSNotificationRegistrarServiceName, KTSNotificationSchedulerServiceName }) {
        auto listener = service->makeListener(name);
        listener->setDelegate(delegate);
        listener->resume();
        listeners.push_back(listener);
    }
    printf("READY\n");
    fflush(stdout);

    int signal = 0;
    sigwait(&stop, &signal);
    for (auto& listener : listeners)
        listener->invalidate();
    return 0;
}
