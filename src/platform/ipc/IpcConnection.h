#pragma once

#include "platform/foundation/Value.h"
#include "platform/ipc/AuditToken.h"
#include "platform/ipc/IpcPeer.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

namespace tessel {

// One client's connection to a named service. The listener's delegate sets the
// exported object (what the client's requests reach) and the interface of the
// client's own object, then resumes it. Requests are delivered one at a time on
// the connection's queue, with currentConnection() naming the connection.
class IpcConnection : public std::enable_shared_from_this<IpcConnection> {
public:
    using Handler = std::function<void()>;

    virtual ~IpcConnection();

    // Interfaces are named by their service's serverInterface/clientInterface;
    // the exported object implements the exported interface's protocol, which
    // the caller names: setExportedObject<KTSNotificationSchedulerServerProtocol>(listener).
    void setExportedInterface(std::string name);
    template <typename Protocol>
    void setExportedObject(std::shared_ptr<std::type_identity_t<Protocol>> object)
    {
        setExportedObjectPointer(std::static_pointer_cast<void>(std::move(object)));
    }
    void setRemoteObjectInterface(std::string name);
    // Points at the exported protocol, as it was set.
    std::shared_ptr<void> exportedObject() const;

    // Implements the remote interface's protocol: calls on it reach the peer's
    // exported object and are dropped once the connection is gone. Null when no
    // remote interface is set or the transport does not know it.
    template <typename Protocol> std::shared_ptr<Protocol> remoteObjectProxy()
    {
        return std::static_pointer_cast<Protocol>(remoteObjectPointer());
    }

    // Interrupted: the peer went away and may come back (a service restarting).
    // Invalidated: the connection is over; called once, the last thing it says.
    void setInterruptionHandler(Handler handler);
    void setInvalidationHandler(Handler handler);

    virtual void resume() = 0;
    virtual void invalidate() = 0;

    const IpcPeer& peer() const { return _peer; }
    int32_t processIdentifier() const { return _peer.pid; }
    AuditToken auditToken() const { return AuditToken { _peer.pid }; }
    // Read from the identified application's installed manifest; null for a
    // process that is no application.
    Value valueForEntitlement(std::string_view entitlement) const;

    // The connection whose request the calling thread is handling; null elsewhere.
    static std::shared_ptr<IpcConnection> currentConnection();
    // Drops the request being handled: the caller's result callback is never
    // called. Transports whose callers would wait for an answer send an error
    // the client library reads as no answer.
    static void refuseCurrentRequest();

protected:
    explicit IpcConnection(IpcPeer peer);

    // A pointer to the remote interface's protocol.
    virtual std::shared_ptr<void> remoteObjectPointer() = 0;

    // For transports: runs one request of this connection with it current;
    // answers whether the handler refused it.
    bool deliverRequest(const std::function<void()>& request);
    const std::string& exportedInterface() const { return _exportedInterface; }
    const std::string& remoteObjectInterface() const { return _remoteObjectInterface; }
    void callInterruptionHandler();
    // At most once; handlers and the exported object are released after it.
    void callInvalidationHandler();

private:
    void setExportedObjectPointer(std::shared_ptr<void> object);

    const IpcPeer _peer;
    mutable std::mutex _mutex;
    std::string _exportedInterface;
    std::string _remoteObjectInterface;
    std::shared_ptr<void> _exportedObject;
    Handler _interruptionHandler;
    Handler _invalidationHandler;
};

} // namespace tessel
