#include "platform/linux/dbus/DbusIpcConnection.h"

#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "platform/linux/dbus/DbusRecordCoding.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerClientProtocol.h"
#include "services/KTSNotificationSchedulerService.h"

#include <poll.h>
#include <unistd.h>
#include <utility>

namespace tessel {

namespace {

    // The remote object proxies: each call becomes a signal addressed to the caller.
    class RegistrarClientSignals : public KTSNotificationRegistrarClientProtocol {
    public:
        explicit RegistrarClientSignals(std::weak_ptr<DbusIpcConnection> connection)
            : _connection(std::move(connection))
        {
        }

        void didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier) override
        {
            if (auto connection = _connection.lock())
                connection->emitSignal(KTSNotificationRegistrarService::clientInterface(),
                    "DidReceiveDeviceToken", [token, bundleIdentifier](sdbus::Signal& signal) {
                        signal << token << bundleIdentifier;
                    });
        }

    private:
        std::weak_ptr<DbusIpcConnection> _connection;
    };

    class SchedulerClientSignals : public KTSNotificationSchedulerClientProtocol {
    public:
        explicit SchedulerClientSignals(std::weak_ptr<DbusIpcConnection> connection)
            : _connection(std::move(connection))
        {
        }

        void didChangeScheduledLocalNotifications(const List& notifications, const std::string& id) override
        {
            send("DidChangeScheduledLocalNotifications", notifications, id);
        }
        void didFireLocalNotifications(const List& notifications, const std::string& id) override
        {
            send("DidFireLocalNotifications", notifications, id);
        }

    private:
        void send(const char* member, const List& notifications, const std::string& bundleIdentifier)
        {
            auto connection = _connection.lock();
            if (!connection || connection->isInvalid())
                return;
            // Archived here rather than on the bus thread, which serves everyone.
            auto archives = DbusRecordCoding::archiveNotifications(notifications);
            connection->emitSignal(KTSNotificationSchedulerService::clientInterface(), member,
                [archives = std::move(archives), bundleIdentifier](
                    sdbus::Signal& signal) { signal << archives << bundleIdentifier; });
        }

        std::weak_ptr<DbusIpcConnection> _connection;
    };

} // namespace

DbusIpcConnection::DbusIpcConnection(
    IpcPeer peer, int pidfd, std::weak_ptr<DbusIpcService> service, std::string objectPath)
    : IpcConnection(std::move(peer))
    , _service(std::move(service))
    , _objectPath(std::move(objectPath))
    , _queue(WorkQueue::create("dbus.connection." + sender()))
    , _pidfd(pidfd)
{
}

DbusIpcConnection::~DbusIpcConnection()
{
    if (_pidfd >= 0)
        ::close(_pidfd);
}

bool DbusIpcConnection::isInvalid() const
{
    std::lock_guard guard(_stateMutex);
    return _invalid;
}

bool DbusIpcConnection::isProcessAlive() const
{
    std::lock_guard guard(_stateMutex);
    // A pidfd turns readable once its process has exited.
    pollfd fd { _pidfd, POLLIN, 0 };
    return _pidfd >= 0 && poll(&fd, 1, 0) == 0;
}

bool DbusIpcConnection::shouldLogRefusal()
{
    auto count = ++_refusals;
    return (count & (count - 1)) == 0;
}

void DbusIpcConnection::resume()
{
    std::vector<Waiting> waiting;
    {
        std::lock_guard guard(_stateMutex);
        if (_resumed || _invalid)
            return;
        _resumed = true;
        waiting.swap(_waiting);
    }
    for (auto& request : waiting)
        deliver(std::move(request.call), std::move(request.refused));
}

void DbusIpcConnection::receive(std::function<void(void*)> call, std::function<void()> refused)
{
    {
        std::lock_guard guard(_stateMutex);
        if (_invalid) {
            refused();
            return;
        }
        if (!_resumed) {
            _waiting.push_back({ std::move(call), std::move(refused) });
            return;
        }
    }
    deliver(std::move(call), std::move(refused));
}

void DbusIpcConnection::deliver(std::function<void(void*)> call, std::function<void()> refused)
{
    auto self = std::static_pointer_cast<DbusIpcConnection>(shared_from_this());
    _queue->async([self, call = std::move(call), refused = std::move(refused)] {
        auto object = self->exportedObject();
        if (!object || self->isInvalid() || self->deliverRequest([&] { call(object.get()); }))
            refused();
    });
}

void DbusIpcConnection::markInvalid()
{
    {
        std::lock_guard guard(_stateMutex);
        if (_invalid)
            return;
        _invalid = true;
        _waiting.clear();
        // An ended connection may be kept (as an observer) for long: it holds no descriptor.
        if (_pidfd >= 0)
            ::close(std::exchange(_pidfd, -1));
    }
    auto self = std::static_pointer_cast<DbusIpcConnection>(shared_from_this());
    _queue->async([self] { self->callInvalidationHandler(); });
}

void DbusIpcConnection::invalidate() { markInvalid(); }

void DbusIpcConnection::close() { markInvalid(); }

void DbusIpcConnection::answer(uint64_t callId, std::function<void(const sdbus::MethodCall&)> reply)
{
    if (auto service = _service.lock())
        service->answerCall(callId, std::move(reply));
}

void DbusIpcConnection::emitSignal(
    const std::string& interface, const std::string& member, std::function<void(sdbus::Signal&)> fill)
{
    if (isInvalid())
        return;
    if (auto service = _service.lock())
        service->emitSignal(_objectPath, interface, member, sender(), std::move(fill));
}

std::shared_ptr<void> DbusIpcConnection::remoteObjectPointer()
{
    std::weak_ptr<DbusIpcConnection> self = std::static_pointer_cast<DbusIpcConnection>(shared_from_this());
    const auto& interface = remoteObjectInterface();
    if (interface == KTSNotificationRegistrarService::clientInterface())
        return std::static_pointer_cast<void>(std::shared_ptr<KTSNotificationRegistrarClientProtocol>(
            std::make_shared<RegistrarClientSignals>(self)));
    if (interface == KTSNotificationSchedulerService::clientInterface())
        return std::static_pointer_cast<void>(std::shared_ptr<KTSNotificationSchedulerClientProtocol>(
            std::make_shared<SchedulerClientSignals>(self)));
    return nullptr;
}

} // namespace tessel
