#include "platform/linux/dbus/DbusIpcListener.h"

#include "platform/Platform.h"
#include "platform/linux/dbus/DbusCheckedObject.h"
#include "platform/linux/dbus/DbusControlAdaptor.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "platform/linux/dbus/DbusRegistrarAdaptor.h"
#include "platform/linux/dbus/DbusRequestSize.h"
#include "platform/linux/dbus/DbusSchedulerAdaptor.h"
#include "services/ControlService.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerService.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tessel {

namespace {

    // Through syscall(): bookworm's glibc declares pidfd_open without C linkage for C++.
    int openPidfd(int32_t pid) { return static_cast<int>(syscall(SYS_pidfd_open, pid, 0)); }

    std::string describe(const IpcPeer& peer)
    {
        return peer.name + " (pid " + std::to_string(peer.pid) + ")";
    }

} // namespace

DbusIpcListener::DbusIpcListener(std::string serviceName, std::shared_ptr<DbusIpcService> service)
    : IpcListener(std::move(serviceName))
    , _service(std::move(service))
{
}

DbusIpcListener::~DbusIpcListener()
{
    _service->runOnBusThread([this] { unpublish(); });
}

void DbusIpcListener::resume()
{
    if (!_service->start())
        return;
    _service->runOnBusThread([this] { publish(); });
}

const IpcLimits& DbusIpcListener::limits() const { return _service->limits(); }

void DbusIpcListener::invalidate()
{
    _service->runOnBusThread([this] {
        _invalid = true;
        unpublish();
    });
}

void DbusIpcListener::publish()
{
    if (_published || _invalid)
        return;
    bool registrar = serviceName() == KTSNotificationRegistrarServiceName;
    bool scheduler = serviceName() == KTSNotificationSchedulerServiceName;
    if (!registrar && !scheduler && serviceName() != ControlService::serviceName) {
        Platform::log(LogPriority::Error, "D-Bus: no interface for service " + serviceName());
        return;
    }
    _objectPath = registrar ? KTSNotificationRegistrarService::objectPath()
        : scheduler         ? KTSNotificationSchedulerService::objectPath()
                            : ControlService::objectPath();
    try {
        _object = std::make_unique<DbusCheckedObject>(
            sdbus::createObject(_service->connection(), _objectPath),
            [this](const sdbus::MethodCall& call) { return admit(call); }, [this] { dropAdmission(); });
        if (registrar)
            _registrar = std::make_unique<DbusRegistrarAdaptor>(*_object, *this);
        else if (scheduler)
            _scheduler = std::make_unique<DbusSchedulerAdaptor>(*_object, *this);
        else
            _control = std::make_unique<DbusControlAdaptor>(*_object, *this);
        _object->finishRegistration();
        _service->addObject(_objectPath, _object.get());
        _service->addListener(this);
        _published = true;
        // Last: callers find the name only once everything answers.
        _service->connection().requestName(serviceName());
    } catch (const sdbus::Error& error) {
        Platform::log(LogPriority::Error, "D-Bus: cannot publish " + serviceName() + ": " + error.what());
        unpublish();
    }
}

void DbusIpcListener::unpublish()
{
    if (!_published && !_object)
        return;
    if (_published) {
        try {
            _service->connection().releaseName(serviceName());
        } catch (const sdbus::Error&) {
            // Never got it, or the bus is gone: nothing to give back.
        }
    }
    _published = false;
    _service->removeListener(this);
    _service->removeObject(_objectPath);
    _registrar.reset();
    _scheduler.reset();
    _control.reset();
    _object.reset();
    auto connections = std::move(_connections);
    _connections.clear();
    for (auto& [sender, connection] : connections)
        if (connection)
            connection->close();
}

void DbusIpcListener::senderDidVanish(const std::string& sender)
{
    auto found = _connections.find(sender);
    if (found == _connections.end())
        return;
    auto connection = std::move(found->second);
    _connections.erase(found);
    if (connection)
        connection->close();
}

bool DbusIpcListener::refuse(const sdbus::MethodCall& call, const char* name, const std::string& message)
{
    try {
        call.createErrorReply(sdbus::Error(name, message)).send();
    } catch (const sdbus::Error&) {
        // A caller that asked for no reply, or one that left.
    }
    return false;
}

bool DbusIpcListener::admit(const sdbus::MethodCall& call)
{
    auto sender = call.getSender();
    auto connection = connectionForCall(call, sender);
    if (!connection)
        return refuse(call, DbusErrors::notEntitled, "The caller is not served");
    if (!connection->isProcessAlive())
        return refuse(call, DbusErrors::notEntitled, "The caller's process has exited");

    const auto& limits = _service->limits();
    std::string exceeded;
    if (connection->pendingRequests() >= limits.maxPendingRequests) {
        exceeded = "more than " + std::to_string(limits.maxPendingRequests) + " unanswered requests";
    } else if (auto size = DbusRequestSize::measure(call, limits.maxRequestBytes, limits.maxListItems);
               !size) {
        return refuse(call, DbusErrors::invalidArguments, "The arguments cannot be read");
    } else if (size->bytes > limits.maxRequestBytes) {
        exceeded
            = std::to_string(size->bytes) + " bytes, more than " + std::to_string(limits.maxRequestBytes);
    } else if (size->listItems > limits.maxListItems) {
        exceeded = std::to_string(size->listItems) + " list entries, more than "
            + std::to_string(limits.maxListItems);
    }
    if (!exceeded.empty()) {
        if (connection->shouldLogRefusal())
            Platform::log(LogPriority::Warning,
                "D-Bus: " + serviceName() + " refuses " + call.getMemberName() + " of "
                    + describe(connection->peer()) + ": " + exceeded);
        return refuse(call, DbusErrors::limitExceeded, "Request refused: " + exceeded);
    }

    connection->requestReceived();
    _admission = Admission { connection, _service->keepCall(call) };
    return true;
}

void DbusIpcListener::dropAdmission()
{
    auto admission = std::exchange(_admission, std::nullopt);
    if (!admission)
        return;
    // The arguments could not be unmarshalled: sdbus-c++ has answered the error.
    _service->forgetCall(admission->callId);
    admission->connection->requestAnswered();
}

std::shared_ptr<DbusIpcConnection> DbusIpcListener::connectionForCall(
    const sdbus::MethodCall& call, const std::string& sender)
{
    if (auto found = _connections.find(sender); found != _connections.end()) {
        if (!found->second || !found->second->isInvalid())
            return found->second;
        // Invalidated by the service: the caller's next request starts afresh.
        _connections.erase(found);
    }

    // Pin the caller: the pid the bus reports is only as good as the moment it
    // is read. With the process held by a pidfd, a second answer naming the same
    // pid for a name still on the bus proves the pidfd holds the caller itself.
    int32_t pid = 0;
    uint32_t uid = 0;
    try {
        pid = call.getCredsPid();
        uid = call.getCredsUid();
    } catch (const sdbus::Error& error) {
        Platform::log(LogPriority::Warning, "D-Bus: no credentials for " + sender + ": " + error.what());
        return nullptr;
    }
    int pidfd = pid > 0 ? openPidfd(pid) : -1;
    if (pidfd < 0) {
        Platform::log(LogPriority::Warning, "D-Bus: cannot pin pid " + std::to_string(pid) + " of " + sender);
        return nullptr;
    }
    if (_service->processIdOfName(sender) != static_cast<uint32_t>(pid)) {
        ::close(pidfd);
        Platform::log(
            LogPriority::Warning, "D-Bus: " + sender + " no longer owns pid " + std::to_string(pid));
        return nullptr;
    }

    auto peer = _service->peerForProcess(pid, uid);
    peer.name = sender;
    auto connection = std::make_shared<DbusIpcConnection>(peer, pidfd, _service, _objectPath);
    if (!offerConnection(connection)) {
        _connections.emplace(sender, nullptr);
        return nullptr;
    }
    _connections.emplace(sender, connection);
    return connection;
}

} // namespace tessel
