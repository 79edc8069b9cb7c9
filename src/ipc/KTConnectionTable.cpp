#include "ipc/KTConnectionTable.h"

#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/logging/SystemLog.h"

namespace tessel {

KTConnectionTable::KTConnectionTable(std::shared_ptr<WorkQueue> queue)
    : _queue(std::move(queue))
{
}

void KTConnectionTable::watchConnection(
    const std::shared_ptr<IpcConnection>& connection, const std::string& listenerName)
{
    std::weak_ptr<KTConnectionTable> weakTable = weak_from_this();
    std::weak_ptr<IpcConnection> weakConnection = connection;
    auto handler = [weakTable, weakConnection](std::string text) {
        return [weakTable, weakConnection, text = std::move(text)] {
            Platform::log(LogPriority::Info, text);
            auto table = weakTable.lock();
            if (auto strong = weakConnection.lock(); table && strong)
                table->removeConnectionForAllBundleIdentifiers(std::move(strong));
        };
    };
    connection->setInterruptionHandler(handler(listenerName + " connection interrupted"));
    connection->setInvalidationHandler(handler(listenerName + " connection invalidated"));
}

void KTConnectionTable::setCurrentConnectionObserving(bool observing, const std::string& bundleIdentifier)
{
    auto connection = IpcConnection::currentConnection();
    if (!connection)
        return;
    if (observing)
        addConnection(std::move(connection), bundleIdentifier);
    else
        removeConnection(std::move(connection), bundleIdentifier);
}

void KTConnectionTable::addConnection(
    std::shared_ptr<IpcConnection> connection, const std::string& bundleIdentifier)
{
    _queue->async([self = shared_from_this(), connection = std::move(connection), bundleIdentifier] {
        self->_queue_addConnection(connection, bundleIdentifier);
    });
}

void KTConnectionTable::removeConnection(
    std::shared_ptr<IpcConnection> connection, const std::string& bundleIdentifier)
{
    _queue->async([self = shared_from_this(), connection = std::move(connection), bundleIdentifier] {
        self->_queue_removeConnection(connection, bundleIdentifier);
    });
}

void KTConnectionTable::removeConnectionForAllBundleIdentifiers(std::shared_ptr<IpcConnection> connection)
{
    _queue->async([self = shared_from_this(), connection = std::move(connection)] {
        self->_queue_removeConnectionForAllBundleIdentifiers(connection);
    });
}

void KTConnectionTable::_queue_addConnection(
    const std::shared_ptr<IpcConnection>& connection, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _connectionsByBundleIdentifier[bundleIdentifier].insert(connection);
    // The reverse entry such an addition would make is filed under the bundle
    // identifier, never under the connection: nothing to record here.
}

void KTConnectionTable::_queue_removeConnection(
    const std::shared_ptr<IpcConnection>& connection, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (auto found = _connectionsByBundleIdentifier.find(bundleIdentifier);
        found != _connectionsByBundleIdentifier.end()) {
        found->second.erase(connection);
        if (found->second.empty())
            _connectionsByBundleIdentifier.erase(found);
    }
    if (auto reverse = _bundleIdentifiersByConnection.find(connection.get());
        reverse != _bundleIdentifiersByConnection.end()) {
        reverse->second.erase(bundleIdentifier);
        if (reverse->second.empty())
            _bundleIdentifiersByConnection.erase(reverse);
    }
}

void KTConnectionTable::_queue_removeConnectionForAllBundleIdentifiers(
    const std::shared_ptr<IpcConnection>& connection)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto reverse = _bundleIdentifiersByConnection.find(connection.get());
    if (reverse == _bundleIdentifiersByConnection.end())
        return;
    for (auto bundleIdentifier : std::set<std::string>(reverse->second))
        _queue_removeConnection(connection, bundleIdentifier);
}

std::vector<std::shared_ptr<IpcConnection>> KTConnectionTable::_queue_connectionsForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto found = _connectionsByBundleIdentifier.find(bundleIdentifier);
    if (found == _connectionsByBundleIdentifier.end())
        return {};
    return { found->second.begin(), found->second.end() };
}

} // namespace tessel
