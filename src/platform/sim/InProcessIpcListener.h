#pragma once

#include "platform/ipc/IpcListener.h"
#include "platform/ipc/IpcPeer.h"

#include <memory>
#include <mutex>
#include <vector>

namespace tessel {

class InProcessIpcConnection;
class InProcessIpcService;

class InProcessIpcListener : public IpcListener, public std::enable_shared_from_this<InProcessIpcListener> {
public:
    InProcessIpcListener(std::string serviceName, std::weak_ptr<InProcessIpcService> service);

    void resume() override;
    void invalidate() override;

    // The service's end of a connection from client, offered to the delegate;
    // null when it was turned away.
    std::shared_ptr<InProcessIpcConnection> accept(const IpcPeer& client);

private:
    std::weak_ptr<InProcessIpcService> _service;
    std::mutex _mutex;
    bool _invalid = false;
    // Held until they end, as a transport keeps its live connections.
    std::vector<std::shared_ptr<InProcessIpcConnection>> _connections;
};

} // namespace tessel
