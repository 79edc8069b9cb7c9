#include "platform/sim/InProcessIpcService.h"

#include "platform/sim/InProcessIpcConnection.h"
#include "platform/sim/InProcessIpcListener.h"

namespace tessel {

std::shared_ptr<IpcListener> InProcessIpcService::makeListener(const std::string& serviceName)
{
    return std::make_shared<InProcessIpcListener>(serviceName, weak_from_this());
}

void InProcessIpcService::listenerDidResume(const std::shared_ptr<InProcessIpcListener>& listener)
{
    std::lock_guard guard(_mutex);
    _listeners[listener->serviceName()] = listener;
}

void InProcessIpcService::listenerDidInvalidate(const InProcessIpcListener& listener)
{
    std::lock_guard guard(_mutex);
    auto found = _listeners.find(listener.serviceName());
    if (found != _listeners.end() && found->second.lock().get() == &listener)
        _listeners.erase(found);
}

std::shared_ptr<IpcConnection> InProcessIpcService::connect(
    const std::string& serviceName, const IpcPeer& client)
{
    std::shared_ptr<InProcessIpcListener> listener;
    {
        std::lock_guard guard(_mutex);
        auto found = _listeners.find(serviceName);
        if (found != _listeners.end())
            listener = found->second.lock();
    }
    if (!listener)
        return nullptr;
    auto serviceEnd = listener->accept(client);
    if (!serviceEnd)
        return nullptr;
    // The client sees the service as a peer of its own process.
    auto clientEnd
        = std::make_shared<InProcessIpcConnection>(IpcPeer { .name = serviceName }, serviceName + ".client");
    InProcessIpcConnection::pair(clientEnd, serviceEnd);
    return clientEnd;
}

} // namespace tessel
