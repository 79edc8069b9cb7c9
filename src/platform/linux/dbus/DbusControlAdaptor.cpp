#include "platform/linux/dbus/DbusControlAdaptor.h"

#include "platform/archive/PropertyList.h"
#include "platform/linux/dbus/DbusIpcListener.h"

namespace tessel {

namespace {

    template <typename... Results> using Reply = std::shared_ptr<DbusReply<Results...>>;

} // namespace

DbusControlAdaptor::DbusControlAdaptor(sdbus::IObject& object, DbusIpcListener& listener)
    : Control1_adaptor(object)
    , _listener(listener)
{
}

void DbusControlAdaptor::deliverValue(
    sdbus::Result<Bytes>& result, std::function<void(Server&, Server::Answer)> call)
{
    _listener.deliver<Server>(result, [call = std::move(call)](Server& server, Reply<Bytes> reply) {
        call(server, [reply](Value value, std::string error) {
            if (!error.empty())
                return reply->fail(DbusErrors::invalidArguments, std::move(error));
            if (auto data = PropertyList::data(value, PropertyList::Format::Binary))
                reply->answer(std::move(*data));
            else
                reply->fail(DbusErrors::failed, "The answer cannot be encoded");
        });
    });
}

void DbusControlAdaptor::deliverEmpty(sdbus::Result<>& result, std::function<void(Server&, Server::Answer)> call)
{
    _listener.deliver<Server>(result, [call = std::move(call)](Server& server, Reply<> reply) {
        call(server, [reply](Value, std::string error) {
            if (!error.empty())
                return reply->fail(DbusErrors::invalidArguments, std::move(error));
            reply->answer();
        });
    });
}

void DbusControlAdaptor::Status(sdbus::Result<Bytes>&& result)
{
    deliverValue(result, [](Server& server, Server::Answer answer) { server.status(std::move(answer)); });
}

void DbusControlAdaptor::Applications(sdbus::Result<Bytes>&& result)
{
    deliverValue(result, [](Server& server, Server::Answer answer) { server.applications(std::move(answer)); });
}

void DbusControlAdaptor::SectionSettings(sdbus::Result<Bytes>&& result, std::string bundleIdentifier)
{
    deliverValue(result, [id = std::move(bundleIdentifier)](Server& server, Server::Answer answer) {
        server.sectionSettings(id, std::move(answer));
    });
}

void DbusControlAdaptor::UpdateSectionSettings(
    sdbus::Result<Bytes>&& result, std::string bundleIdentifier, Bytes changes)
{
    deliverValue(result,
        [id = std::move(bundleIdentifier), data = std::move(changes)](Server& server, Server::Answer answer) {
            auto value = PropertyList::read(data);
            if (!value || !value->isDictionary())
                return answer(Value {}, "changes is no property list of a dictionary");
            server.updateSectionSettings(id, *value, std::move(answer));
        });
}

void DbusControlAdaptor::DeliveredNotifications(sdbus::Result<Bytes>&& result, std::string bundleIdentifier)
{
    deliverValue(result, [id = std::move(bundleIdentifier)](Server& server, Server::Answer answer) {
        server.deliveredNotifications(id, std::move(answer));
    });
}

void DbusControlAdaptor::ClearDeliveredNotifications(sdbus::Result<>&& result, std::string bundleIdentifier)
{
    deliverEmpty(result, [id = std::move(bundleIdentifier)](Server& server, Server::Answer answer) {
        server.clearDeliveredNotifications(id, std::move(answer));
    });
}

void DbusControlAdaptor::InjectPushMessage(sdbus::Result<bool>&& result, std::string environment,
    std::string topic, Bytes payload, int64_t priority)
{
    _listener.deliver<Server>(result,
        [environment = std::move(environment), topic = std::move(topic), data = std::move(payload), priority](
            Server& server, Reply<bool> reply) {
            auto value = PropertyList::read(data);
            if (!value || !value->isDictionary())
                return reply->fail(DbusErrors::invalidArguments, "payload is no property list of a dictionary");
            server.injectPushMessage(environment, topic, *value, priority, [reply](Value delivered, std::string error) {
                if (!error.empty())
                    return reply->fail(DbusErrors::invalidArguments, std::move(error));
                reply->answer(delivered.boolValue());
            });
        });
}

void DbusControlAdaptor::RequestPushToken(
    sdbus::Result<>&& result, std::string bundleIdentifier, std::string environment)
{
    deliverEmpty(result,
        [id = std::move(bundleIdentifier), environment = std::move(environment)](Server& server, Server::Answer answer) {
            server.requestPushToken(id, environment, std::move(answer));
        });
}

} // namespace tessel
