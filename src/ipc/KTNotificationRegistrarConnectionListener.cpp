#include "ipc/KTNotificationRegistrarConnectionListener.h"

#include "ipc/KTConnectionTable.h"
#include "ipc/KTCurrentCaller.h"
#include "platform/Platform.h"
#include "platform/applications/Bundle.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/ErrorDomains.h"
#include "platform/foundation/Format.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcService.h"
#include "platform/logging/SystemLog.h"
#include "platform/records/NotificationSettings.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "settings/KTNotificationSettingsService.h"

#include <tessel/Tessel.h>

namespace tessel {

namespace {

    constexpr const char* listenerName = "KTNotificationRegistrarConnectionListener";
    constexpr int64_t remoteNotificationsNotSupportedCode = 3010;

    // What the host application says about remote registration, in the user's language.
    std::string remoteNotificationsNotSupportedDescription()
    {
        constexpr const char* key = "REMOTE_NOTIFICATION_SIMULATOR_NOT_SUPPORTED_NSERROR_DESCRIPTION";
        const auto& path = Platform::current().hostBundlePath;
        auto host = path.empty() ? nullptr : Bundle::bundleWithPath(path);
        return host ? host->localizedStringForKey(key, "", "") : key;
    }

} // namespace

std::shared_ptr<KTNotificationRegistrarConnectionListener>
KTNotificationRegistrarConnectionListener::initWithSystemStateProvider(
    std::shared_ptr<KTSystemStateProviding> systemStateProvider)
{
    auto listener
        = std::make_shared<KTNotificationRegistrarConnectionListener>(std::move(systemStateProvider));
    listener->start();
    return listener;
}

KTNotificationRegistrarConnectionListener::KTNotificationRegistrarConnectionListener(
    std::shared_ptr<KTSystemStateProviding> systemStateProvider)
    : _removeNotificationServer(
        KTRemoteNotificationServer::initWithSystemStateProvider(std::move(systemStateProvider)))
    , _queue(WorkQueue::create(queueLabel))
    , _connections(std::make_shared<KTConnectionTable>(_queue))
{
}

void KTNotificationRegistrarConnectionListener::start()
{
    _removeNotificationServer->setDelegate(shared_from_this());
    _listener = Platform::current().ipc->makeListener(KTSNotificationRegistrarServiceName);
    _listener->setDelegate(weak_from_this());
    _listener->resume();
}

KTNotificationRegistrarConnectionListener::~KTNotificationRegistrarConnectionListener() { invalidate(); }

void KTNotificationRegistrarConnectionListener::invalidate()
{
    if (_listener)
        _listener->invalidate();
}

bool KTNotificationRegistrarConnectionListener::listenerShouldAcceptNewConnection(
    IpcListener&, const std::shared_ptr<IpcConnection>& connection)
{
    connection->setRemoteObjectInterface(KTSNotificationRegistrarService::clientInterface());
    connection->setExportedInterface(KTSNotificationRegistrarService::serverInterface());
    connection->setExportedObject<KTSNotificationRegistrarServerProtocol>(shared_from_this());
    _connections->watchConnection(connection, listenerName);
    connection->resume();
    return true;
}

bool KTNotificationRegistrarConnectionListener::_isAllowedToRegisterForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    if (KTCurrentCaller::actsFor(bundleIdentifier,
            { KTSNotificationRegistrarProxyEntitlementName, KTLocalNotificationsSchedulingProxyEntitlement }))
        return true;
    return KTCurrentCaller::refuse(
        format("Entitlment '%@' required to register user notificaion settings for %@",
            KTSNotificationRegistrarProxyEntitlementName, bundleIdentifier));
}

bool KTNotificationRegistrarConnectionListener::_isAllowedToAdministerRemoteNotificationSettings()
{
    if (KTCurrentCaller::holdsAny({ KTSNotificationRegistrarRemoteNotificationSettingsEntitlementName,
            KTRemoteNotificationsPreferencesEntitlement }))
        return true;
    return KTCurrentCaller::refuse(
        format("Entitlment '%@' required to administer remote notificaion settings",
            KTSNotificationRegistrarRemoteNotificationSettingsEntitlementName));
}

void KTNotificationRegistrarConnectionListener::setObservingRemoteNotifications(
    bool observing, const std::string& bundleIdentifier, Completion completion)
{
    if (!_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        return;
    _connections->setCurrentConnectionObserving(observing, bundleIdentifier);
    if (completion)
        completion();
}

void KTNotificationRegistrarConnectionListener::invalidateTokenForRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, Completion completion)
{
    if (!_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        return;
    _removeNotificationServer->invalidateTokenForRemoteNotificationsForBundleIdentifier(bundleIdentifier);
    if (completion)
        completion();
}

void KTNotificationRegistrarConnectionListener::registerNotificationSettings(
    std::shared_ptr<NotificationSettings> settings, const std::string& bundleIdentifier,
    SettingsResult result)
{
    if (_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        KTNotificationSettingsService::sharedInstance()->registerNotificationSettings(
            std::move(settings), bundleIdentifier, std::move(result));
}

void KTNotificationRegistrarConnectionListener::registerBadgeSettingForBundleIdentifier(
    const std::string& bundleIdentifier, Completion completion)
{
    if (!_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        return;
    KTNotificationSettingsService::sharedInstance()->registerNotificationTypes(
        NotificationSettings::TypeBadge, bundleIdentifier);
    if (completion)
        completion();
}

void KTNotificationRegistrarConnectionListener::notificationSettingsForBundleIdentifier(
    const std::string& bundleIdentifier, SettingsResult result)
{
    if (_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        KTNotificationSettingsService::sharedInstance()->notificationSettingsForBundleIdentifier(
            bundleIdentifier, std::move(result));
}

void KTNotificationRegistrarConnectionListener::notificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, TypesResult result)
{
    if (_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        KTNotificationSettingsService::sharedInstance()->notificationTypesForBundleIdentifier(
            bundleIdentifier, std::move(result));
}

void KTNotificationRegistrarConnectionListener::allowsRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, BoolResult result)
{
    if (_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        _removeNotificationServer->allowsRemoteNotificationsForBundleIdentifier(
            bundleIdentifier, std::move(result));
}

void KTNotificationRegistrarConnectionListener::remoteNotificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, TypesResult result)
{
    if (_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        _removeNotificationServer->remoteNotificationTypesForBundleIdentifier(
            bundleIdentifier, std::move(result));
}

// This configuration has no push registration: the requested types go unused.
void KTNotificationRegistrarConnectionListener::registerRemoteNotificationTypes(
    uint64_t, const std::string& bundleIdentifier, ErrorResult result)
{
    if (!_isAllowedToRegisterForBundleIdentifier(bundleIdentifier))
        return;
    Platform::log(LogPriority::Notice, "Remote notifications are not supported in the simulator");
    if (result)
        result(KTSError { GeneralErrorDomain, remoteNotificationsNotSupportedCode,
            remoteNotificationsNotSupportedDescription() });
}

void KTNotificationRegistrarConnectionListener::requestTokenForRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, ErrorResult result)
{
    registerRemoteNotificationTypes(0, bundleIdentifier, std::move(result));
}

void KTNotificationRegistrarConnectionListener::backgroundAppRefreshBundleIdentifierMappingWithResult(
    MappingResult result)
{
    if (_isAllowedToAdministerRemoteNotificationSettings())
        _removeNotificationServer->backgroundAppRefreshBundleIdentifierMappingWithResult(std::move(result));
}

void KTNotificationRegistrarConnectionListener::setAllowsBackgroundRefresh(
    bool allowed, const std::string& bundleIdentifier, Completion completion)
{
    if (!_isAllowedToAdministerRemoteNotificationSettings())
        return;
    _removeNotificationServer->setAllowsBackgroundRefresh(allowed, bundleIdentifier);
    if (completion)
        completion();
}

void KTNotificationRegistrarConnectionListener::didReceiveDeviceToken(
    const Bytes& token, const std::string& bundleIdentifier)
{
    _queue->async([self = shared_from_this(), token, bundleIdentifier] {
        self->_queue_didReceiveDeviceToken(token, bundleIdentifier);
    });
}

void KTNotificationRegistrarConnectionListener::_queue_didReceiveDeviceToken(
    const Bytes& token, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _connections->_queue_sendToObservers<KTSNotificationRegistrarClientProtocol>(
        bundleIdentifier, [&](auto& client) { client.didReceiveDeviceToken(token, bundleIdentifier); });
}

} // namespace tessel
