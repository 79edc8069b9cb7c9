#include "tessel/services/KTSNotificationRegistrarClient.h"

#include "client/ClientConnection.h"
#include "client/ClientRecords.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarService.h"

#include "dbus/registrar-proxy.h"

namespace tessel {

namespace {

    using Work = ClientConnection::Work;

    using Interface = com::tamber::Tessel::Registrar1_proxy;
    using ClientInterface = com::tamber::Tessel::RegistrarClient1_proxy;

    template <typename T> ClientConnection::ReplyReader valueReader(std::function<void(T)> result)
    {
        return [result = std::move(result)](sdbus::MethodReply& reply) -> Work {
            T value {};
            // A value that is not there reads as false rather than throwing.
            if (!(reply >> value))
                throw MalformedAnswer("an answer without its value");
            if (!result)
                return {};
            return [result, value] { result(value); };
        };
    }

    ClientConnection::ReplyReader settingsReader(KTSNotificationRegistrarClient::SettingsResult result)
    {
        return [result = std::move(result)](sdbus::MethodReply& reply) -> Work {
            auto validated = validatedSettings(readBytes(reply));
            if (!result)
                return {};
            return [result, validated = std::move(validated)] { result(validated); };
        };
    }

    ClientConnection::ReplyReader registrationReader(KTSNotificationRegistrarClient::ErrorResult result)
    {
        return [result = std::move(result)](sdbus::MethodReply& reply) -> Work {
            RegistrationError error;
            if (!(reply >> error.domain >> error.code >> error.localizedDescription))
                throw MalformedAnswer("an answer without its error");
            if (!result)
                return {};
            // An empty domain is no error.
            std::optional<RegistrationError> answer;
            if (!error.domain.empty())
                answer = std::move(error);
            return [result, answer = std::move(answer)] { result(answer); };
        };
    }

} // namespace

// Hidden, so that no instantiation over it is exported with the class.
class __attribute__((visibility("hidden"))) KTSNotificationRegistrarClient::Impl {
public:
    struct State {
        std::mutex lock;
        Observer observer;
    };

    explicit Impl(ClientOptions options)
        : connection(std::move(options), KTSNotificationRegistrarServiceName,
            KTSNotificationRegistrarService::objectPath(), Interface::INTERFACE_NAME)
    {
        connection.onSignal(ClientInterface::INTERFACE_NAME, "DidReceiveDeviceToken", "didReceiveDeviceToken",
            [state = state](sdbus::Signal& signal) -> Work {
                auto token = readBytes(signal);
                std::string bundleIdentifier;
                if (!(signal >> bundleIdentifier))
                    throw MalformedAnswer("an event without its bundle identifier");
                return [state, token = std::move(token), bundleIdentifier = std::move(bundleIdentifier)] {
                    std::function<void(const std::vector<uint8_t>&, const std::string&)> event;
                    {
                        std::lock_guard lock(state->lock);
                        event = state->observer.didReceiveDeviceToken;
                    }
                    if (event)
                        event(token, bundleIdentifier);
                };
            });
        connection.start();
    }

    std::shared_ptr<State> state = std::make_shared<State>();
    ClientConnection connection;
};

KTSNotificationRegistrarClient::KTSNotificationRegistrarClient(ClientOptions options)
    : _impl(std::make_unique<Impl>(std::move(options)))
{
}

KTSNotificationRegistrarClient::~KTSNotificationRegistrarClient() = default;

void KTSNotificationRegistrarClient::setObserver(Observer observer)
{
    std::lock_guard lock(_impl->state->lock);
    _impl->state->observer = std::move(observer);
}

void KTSNotificationRegistrarClient::setObservingRemoteNotifications(
    bool observing, const std::string& bundleIdentifier, Completion completion)
{
    _impl->connection.setObserving("SetObservingRemoteNotifications", "setObservingRemoteNotifications",
        observing, bundleIdentifier, std::move(completion));
}

void KTSNotificationRegistrarClient::invalidateTokenForRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, Completion completion)
{
    _impl->connection.call("InvalidateTokenForRemoteNotifications",
        "invalidateTokenForRemoteNotificationsForBundleIdentifier",
        ClientConnection::completionReader(std::move(completion)), bundleIdentifier);
}

void KTSNotificationRegistrarClient::registerNotificationSettings(
    const ArchivedRecord& settings, const std::string& bundleIdentifier, SettingsResult result)
{
    _impl->connection.call("RegisterNotificationSettings", "registerNotificationSettings",
        settingsReader(std::move(result)), settings, bundleIdentifier);
}

void KTSNotificationRegistrarClient::registerBadgeSettingForBundleIdentifier(
    const std::string& bundleIdentifier, Completion completion)
{
    _impl->connection.call("RegisterBadgeSetting", "registerBadgeSettingForBundleIdentifier",
        ClientConnection::completionReader(std::move(completion)), bundleIdentifier);
}

void KTSNotificationRegistrarClient::notificationSettingsForBundleIdentifier(
    const std::string& bundleIdentifier, SettingsResult result)
{
    _impl->connection.call("NotificationSettings", "notificationSettingsForBundleIdentifier",
        settingsReader(std::move(result)), bundleIdentifier);
}

void KTSNotificationRegistrarClient::notificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, TypesResult result)
{
    _impl->connection.call("NotificationTypes", "notificationTypesForBundleIdentifier",
        valueReader<uint64_t>(std::move(result)), bundleIdentifier);
}

void KTSNotificationRegistrarClient::allowsRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, BoolResult result)
{
    _impl->connection.call("AllowsRemoteNotifications", "allowsRemoteNotificationsForBundleIdentifier",
        valueReader<bool>(std::move(result)), bundleIdentifier);
}

void KTSNotificationRegistrarClient::remoteNotificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, TypesResult result)
{
    _impl->connection.call("RemoteNotificationTypes", "remoteNotificationTypesForBundleIdentifier",
        valueReader<uint64_t>(std::move(result)), bundleIdentifier);
}

void KTSNotificationRegistrarClient::registerRemoteNotificationTypes(
    uint64_t types, const std::string& bundleIdentifier, ErrorResult result)
{
    _impl->connection.call("RegisterRemoteNotificationTypes", "registerRemoteNotificationTypes",
        registrationReader(std::move(result)), types, bundleIdentifier);
}

void KTSNotificationRegistrarClient::requestTokenForRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, ErrorResult result)
{
    _impl->connection.call("RequestTokenForRemoteNotifications",
        "requestTokenForRemoteNotificationsForBundleIdentifier", registrationReader(std::move(result)),
        bundleIdentifier);
}

void KTSNotificationRegistrarClient::backgroundAppRefreshBundleIdentifierMappingWithResult(
    MappingResult result)
{
    _impl->connection.call("BackgroundAppRefreshBundleIdentifierMapping",
        "backgroundAppRefreshBundleIdentifierMappingWithResult",
        [result = std::move(result)](sdbus::MethodReply& reply) -> Work {
            auto mapping = backgroundRefreshMapping(readBytes(reply));
            if (!result)
                return {};
            return [result, mapping = std::move(mapping)] { result(mapping); };
        });
}

void KTSNotificationRegistrarClient::setAllowsBackgroundRefresh(
    bool allowed, const std::string& bundleIdentifier, Completion completion)
{
    _impl->connection.call("SetAllowsBackgroundRefresh", "setAllowsBackgroundRefresh",
        ClientConnection::completionReader(std::move(completion)), allowed, bundleIdentifier);
}

} // namespace tessel
