#pragma once

#include "platform/ipc/IpcConnection.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class WorkQueue;

// Which client connections observe which bundle identifiers, for one service
// listener, confined to the listener's queue. Public forms post to the queue.
//
// Adding files no entry under the connection in the reverse table, so removing
// a connection for all its bundle identifiers removes nothing: an observer
// stays one, alive or not, until it asks to stop. Events sent to a connection
// that is gone are dropped by the connection.
class KTConnectionTable : public std::enable_shared_from_this<KTConnectionTable> {
public:
    using Connections = std::set<std::shared_ptr<IpcConnection>>;

    explicit KTConnectionTable(std::shared_ptr<WorkQueue> queue);

    // Logs "<listenerName> connection interrupted" (or invalidated) when the
    // connection says so, then removes it for all bundle identifiers. The
    // handlers hold neither the connection nor the table.
    void watchConnection(const std::shared_ptr<IpcConnection>& connection, const std::string& listenerName);

    // The connection whose request is being handled starts or stops observing.
    void setCurrentConnectionObserving(bool observing, const std::string& bundleIdentifier);
    void addConnection(std::shared_ptr<IpcConnection> connection, const std::string& bundleIdentifier);
    void removeConnection(std::shared_ptr<IpcConnection> connection, const std::string& bundleIdentifier);
    void removeConnectionForAllBundleIdentifiers(std::shared_ptr<IpcConnection> connection);

    void _queue_addConnection(
        const std::shared_ptr<IpcConnection>& connection, const std::string& bundleIdentifier);
    void _queue_removeConnection(
        const std::shared_ptr<IpcConnection>& connection, const std::string& bundleIdentifier);
    void _queue_removeConnectionForAllBundleIdentifiers(const std::shared_ptr<IpcConnection>& connection);
    // Empty when nobody observes the identifier.
    std::vector<std::shared_ptr<IpcConnection>> _queue_connectionsForBundleIdentifier(
        const std::string& bundleIdentifier);
    // Calls send with the client protocol of every observer of the identifier.
    template <typename Protocol, typename Send>
    void _queue_sendToObservers(const std::string& bundleIdentifier, Send send)
    {
        for (auto& connection : _queue_connectionsForBundleIdentifier(bundleIdentifier))
            if (auto proxy = connection->remoteObjectProxy<Protocol>())
                send(*proxy);
    }

private:
    const std::shared_ptr<WorkQueue> _queue;
    std::map<std::string, Connections> _connectionsByBundleIdentifier;
    // Keyed by connection identity; see the class comment for why it stays empty.
    std::map<const IpcConnection*, std::set<std::string>> _bundleIdentifiersByConnection;
};

} // namespace tessel
