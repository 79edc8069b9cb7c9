#include "platform/ipc/IpcListener.h"

#include "platform/ipc/IpcService.h"

namespace tessel {

IpcListenerDelegate::~IpcListenerDelegate() = default;
IpcService::~IpcService() = default;

IpcListener::IpcListener(std::string serviceName)
    : _serviceName(std::move(serviceName))
{
}

IpcListener::~IpcListener() = default;

bool IpcListener::offerConnection(const std::shared_ptr<IpcConnection>& connection)
{
    auto delegate = _delegate.lock();
    return delegate && delegate->listenerShouldAcceptNewConnection(*this, connection);
}

} // namespace tessel
