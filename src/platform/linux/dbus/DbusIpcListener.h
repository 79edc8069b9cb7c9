#pragma once

#include "platform/ipc/IpcLimits.h"
#include "platform/ipc/IpcListener.h"
#include "platform/linux/dbus/DbusErrors.h"
#include "platform/linux/dbus/DbusIpcConnection.h"
#include "platform/linux/dbus/DbusReply.h"

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tessel {

class DbusCheckedObject;
class DbusControlAdaptor;
class DbusIpcService;
class DbusRegistrarAdaptor;
class DbusSchedulerAdaptor;

// Publishes one service: owns its well-known name and the object at the
// service's path, and keeps one connection per caller's unique name.
class DbusIpcListener : public IpcListener, public std::enable_shared_from_this<DbusIpcListener> {
public:
    DbusIpcListener(std::string serviceName, std::shared_ptr<DbusIpcService> service);
    ~DbusIpcListener() override;

    void resume() override;
    void invalidate() override;
    const IpcLimits& limits() const;

    // For the adaptors, on the bus thread: hands the call being unmarshalled
    // to its connection's queue, where call decodes what it needs and calls the
    // exported object with the call's reply.
    template <typename Protocol, typename... Results, typename Call>
    void deliver(sdbus::Result<Results...>& result, Call call)
    {
        auto admission = std::exchange(_admission, std::nullopt);
        if (!admission) {
            result.returnError(sdbus::Error(DbusErrors::failed, "The call was not admitted"));
            return;
        }
        auto reply = std::make_shared<DbusReply<Results...>>(admission->connection, admission->callId);
        admission->connection->receive(
            [reply, call = std::move(call)](void* object) { call(*static_cast<Protocol*>(object), reply); },
            [reply] { reply->fail(DbusErrors::notEntitled, "The request was refused"); });
    }

    // Bus thread: the name left the bus.
    void senderDidVanish(const std::string& sender);

private:
    struct Admission {
        std::shared_ptr<DbusIpcConnection> connection;
        uint64_t callId;
    };

    // Identifies the caller and checks its bounds before the arguments are
    // unmarshalled; false when it replied an error instead.
    bool admit(const sdbus::MethodCall& call);
    // After the handler: an admission it did not take is no request.
    void dropAdmission();
    std::shared_ptr<DbusIpcConnection> connectionForCall(
        const sdbus::MethodCall& call, const std::string& sender);
    bool refuse(const sdbus::MethodCall& call, const char* name, const std::string& message);
    void publish();
    void unpublish();

    const std::shared_ptr<DbusIpcService> _service;

    // Bus thread only.
    bool _published = false;
    bool _invalid = false;
    std::string _objectPath;
    std::unique_ptr<DbusCheckedObject> _object;
    std::unique_ptr<DbusRegistrarAdaptor> _registrar;
    std::unique_ptr<DbusSchedulerAdaptor> _scheduler;
    std::unique_ptr<DbusControlAdaptor> _control;
    // Null for a caller the delegate turned away.
    std::map<std::string, std::shared_ptr<DbusIpcConnection>> _connections;
    std::optional<Admission> _admission;
};

} // namespace tessel
