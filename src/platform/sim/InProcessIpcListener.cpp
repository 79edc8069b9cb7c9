#include "platform/sim/InProcessIpcListener.h"

#include "platform/sim/InProcessIpcConnection.h"
#include "platform/sim/InProcessIpcService.h"

namespace tessel {

InProcessIpcListener::InProcessIpcListener(
    std::string serviceName, std::weak_ptr<InProcessIpcService> service)
    : IpcListener(std::move(serviceName))
    , _service(std::move(service))
{
}

void InProcessIpcListener::resume()
{
    if (auto service = _service.lock())
        service->listenerDidResume(shared_from_this());
}

void InProcessIpcListener::invalidate()
{
    std::vector<std::shared_ptr<InProcessIpcConnection>> connections;
    {
        std::lock_guard guard(_mutex);
        _invalid = true;
        connections.swap(_connections);
    }
    if (auto service = _service.lock())
        service->listenerDidInvalidate(*this);
    for (auto& connection : connections)
        connection->invalidate();
}

std::shared_ptr<InProcessIpcConnection> InProcessIpcListener::accept(const IpcPeer& client)
{
    auto connection = std::make_shared<InProcessIpcConnection>(client, serviceName() + ".connection");
    if (!offerConnection(connection))
        return nullptr;
    std::lock_guard guard(_mutex);
    if (_invalid)
        return nullptr;
    std::erase_if(_connections, [](auto& held) { return held->isInvalid(); });
    _connections.push_back(connection);
    return connection;
}

} // namespace tessel
