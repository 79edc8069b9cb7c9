#include "platform/ipc/IpcConnection.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"

namespace tessel {

namespace {

    struct CurrentRequest {
        std::weak_ptr<IpcConnection> connection;
        bool refused = false;
    };
    thread_local CurrentRequest* currentRequest = nullptr;

} // namespace

IpcConnection::IpcConnection(IpcPeer peer)
    : _peer(std::move(peer))
{
}

IpcConnection::~IpcConnection() = default;

void IpcConnection::setExportedInterface(std::string name)
{
    std::lock_guard guard(_mutex);
    _exportedInterface = std::move(name);
}

void IpcConnection::setExportedObjectPointer(std::shared_ptr<void> object)
{
    std::lock_guard guard(_mutex);
    _exportedObject = std::move(object);
}

void IpcConnection::setRemoteObjectInterface(std::string name)
{
    std::lock_guard guard(_mutex);
    _remoteObjectInterface = std::move(name);
}

std::shared_ptr<void> IpcConnection::exportedObject() const
{
    std::lock_guard guard(_mutex);
    return _exportedObject;
}

void IpcConnection::setInterruptionHandler(Handler handler)
{
    std::lock_guard guard(_mutex);
    _interruptionHandler = std::move(handler);
}

void IpcConnection::setInvalidationHandler(Handler handler)
{
    std::lock_guard guard(_mutex);
    _invalidationHandler = std::move(handler);
}

Value IpcConnection::valueForEntitlement(std::string_view entitlement) const
{
    auto& platform = Platform::current();
    if (_peer.bundleIdentifier.empty() || !platform.workspace)
        return {};
    auto application = platform.workspace->applicationProxyForIdentifier(_peer.bundleIdentifier);
    return application ? application->entitlementValueForKey(entitlement) : Value {};
}

std::shared_ptr<IpcConnection> IpcConnection::currentConnection()
{
    return currentRequest ? currentRequest->connection.lock() : nullptr;
}

void IpcConnection::refuseCurrentRequest()
{
    if (currentRequest)
        currentRequest->refused = true;
}

bool IpcConnection::deliverRequest(const std::function<void()>& request)
{
    // Requests nest when a handler answers synchronously through another
    // connection of the same thread; the outer one is current again afterwards.
    struct Scope {
        CurrentRequest current;
        CurrentRequest* outer = currentRequest;
        explicit Scope(std::weak_ptr<IpcConnection> connection)
            : current { std::move(connection) }
        {
            currentRequest = &current;
        }
        ~Scope() { currentRequest = outer; }
    } scope(weak_from_this());
    request();
    return scope.current.refused;
}

void IpcConnection::callInterruptionHandler()
{
    Handler handler;
    {
        std::lock_guard guard(_mutex);
        handler = _interruptionHandler;
    }
    if (handler)
        handler();
}

void IpcConnection::callInvalidationHandler()
{
    Handler handler;
    {
        std::lock_guard guard(_mutex);
        handler = std::move(_invalidationHandler);
        _invalidationHandler = nullptr;
        _interruptionHandler = nullptr;
    }
    if (handler)
        handler();
    // An exported object that keeps its connections (observer tables) would
    // otherwise keep itself alive through them.
    std::lock_guard guard(_mutex);
    _exportedObject.reset();
}

} // namespace tessel
