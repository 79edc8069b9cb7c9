#include "platform/linux/dbus/DbusRegistrarAdaptor.h"

#include "platform/linux/dbus/DbusIpcListener.h"
#include "platform/linux/dbus/DbusRecordCoding.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"

namespace tessel {

namespace {

    using Server = KTSNotificationRegistrarServerProtocol;
    template <typename... Results> using Reply = std::shared_ptr<DbusReply<Results...>>;
    using Bytes = std::vector<uint8_t>;

    template <typename... Results> auto completion(Reply<Results...> reply)
    {
        return [reply] { reply->answer(); };
    }

    void answerArchive(const Reply<Bytes>& reply, const Value& value)
    {
        if (auto data = DbusRecordCoding::archive(value))
            reply->answer(std::move(*data));
        else
            reply->fail(DbusErrors::failed, "The answer cannot be archived");
    }

    // An empty domain is no error.
    void answerError(
        const Reply<std::string, int64_t, std::string>& reply, const std::optional<KTSError>& error)
    {
        if (error)
            reply->answer(error->domain, error->code, error->localizedDescription);
        else
            reply->answer({}, 0, {});
    }

} // namespace

DbusRegistrarAdaptor::DbusRegistrarAdaptor(sdbus::IObject& object, DbusIpcListener& listener)
    : Registrar1_adaptor(object)
    , RegistrarClient1_adaptor(object)
    , _listener(listener)
{
}

void DbusRegistrarAdaptor::SetObservingRemoteNotifications(
    sdbus::Result<>&& result, bool observing, std::string bundleIdentifier)
{
    _listener.deliver<Server>(
        result, [observing, id = std::move(bundleIdentifier)](Server& server, Reply<> reply) {
            server.setObservingRemoteNotifications(observing, id, completion(reply));
        });
}

void DbusRegistrarAdaptor::InvalidateTokenForRemoteNotifications(
    sdbus::Result<>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result, [id = std::move(bundleIdentifier)](Server& server, Reply<> reply) {
        server.invalidateTokenForRemoteNotificationsForBundleIdentifier(id, completion(reply));
    });
}

void DbusRegistrarAdaptor::RegisterNotificationSettings(
    sdbus::Result<Bytes>&& result, Bytes settings, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result,
        [data = std::move(settings), id = std::move(bundleIdentifier)](Server& server, Reply<Bytes> reply) {
            auto decoded = DbusRecordCoding::unarchiveSettings(data);
            if (!decoded)
                return reply->fail(
                    DbusErrors::invalidArguments, "settings is no notification settings archive");
            server.registerNotificationSettings(
                *decoded, id, [reply](std::shared_ptr<tessel::NotificationSettings> registered) {
                    answerArchive(reply, Value(registered));
                });
        });
}

void DbusRegistrarAdaptor::RegisterBadgeSetting(sdbus::Result<>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result, [id = std::move(bundleIdentifier)](Server& server, Reply<> reply) {
        server.registerBadgeSettingForBundleIdentifier(id, completion(reply));
    });
}

void DbusRegistrarAdaptor::NotificationSettings(sdbus::Result<Bytes>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result, [id = std::move(bundleIdentifier)](Server& server, Reply<Bytes> reply) {
        server.notificationSettingsForBundleIdentifier(
            id, [reply](std::shared_ptr<tessel::NotificationSettings> settings) {
                answerArchive(reply, Value(settings));
            });
    });
}

void DbusRegistrarAdaptor::NotificationTypes(sdbus::Result<uint64_t>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(
        result, [id = std::move(bundleIdentifier)](Server& server, Reply<uint64_t> reply) {
            server.notificationTypesForBundleIdentifier(
                id, [reply](uint64_t types) { reply->answer(types); });
        });
}

void DbusRegistrarAdaptor::AllowsRemoteNotifications(
    sdbus::Result<bool>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result, [id = std::move(bundleIdentifier)](Server& server, Reply<bool> reply) {
        server.allowsRemoteNotificationsForBundleIdentifier(
            id, [reply](bool allowed) { reply->answer(allowed); });
    });
}

void DbusRegistrarAdaptor::RemoteNotificationTypes(
    sdbus::Result<uint64_t>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(
        result, [id = std::move(bundleIdentifier)](Server& server, Reply<uint64_t> reply) {
            server.remoteNotificationTypesForBundleIdentifier(
                id, [reply](uint64_t types) { reply->answer(types); });
        });
}

void DbusRegistrarAdaptor::RegisterRemoteNotificationTypes(
    sdbus::Result<std::string, int64_t, std::string>&& result, uint64_t types, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result,
        [types, id = std::move(bundleIdentifier)](
            Server& server, Reply<std::string, int64_t, std::string> reply) {
            server.registerRemoteNotificationTypes(
                types, id, [reply](std::optional<KTSError> error) { answerError(reply, error); });
        });
}

void DbusRegistrarAdaptor::RequestTokenForRemoteNotifications(
    sdbus::Result<std::string, int64_t, std::string>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(result,
        [id = std::move(bundleIdentifier)](Server& server, Reply<std::string, int64_t, std::string> reply) {
            server.requestTokenForRemoteNotificationsForBundleIdentifier(
                id, [reply](std::optional<KTSError> error) { answerError(reply, error); });
        });
}

void DbusRegistrarAdaptor::BackgroundAppRefreshBundleIdentifierMapping(sdbus::Result<Bytes>&& result)
{
    _listener.deliver<Server>(result, [](Server& server, Reply<Bytes> reply) {
        server.backgroundAppRefreshBundleIdentifierMappingWithResult(
            [reply](Value::Dictionary mapping) { answerArchive(reply, Value(std::move(mapping))); });
    });
}

void DbusRegistrarAdaptor::SetAllowsBackgroundRefresh(
    sdbus::Result<>&& result, bool allowed, std::string bundleIdentifier)
{
    _listener.deliver<Server>(
        result, [allowed, id = std::move(bundleIdentifier)](Server& server, Reply<> reply) {
            server.setAllowsBackgroundRefresh(allowed, id, completion(reply));
        });
}

} // namespace tessel
