#include "remote/KTRemoteNotificationServer.h"

#include "core/KTLogging.h"
#include "core/KTNotificationSettingsChange.h"
#include "core/KTSystemStateProviding.h"
#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/Preferences.h"
#include "platform/foundation/Utf8.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "platform/push/DownloadManager.h"
#include "platform/push/ProfileConnection.h"
#include "remote/KTRemoteNotificationClient.h"
#include "tessel/Tessel.h"

#include <algorithm>
#include <string_view>

namespace tessel {

namespace {

    constexpr const char* cloudDatabaseEntitlement = "com.tamber.developer.skyvault-services";
    constexpr const char* cloudDatabaseService = "driftkeep";
    constexpr const char* cloudDatabaseTopicPrefix = "com.tamber.skyvault-container.";
    constexpr const char* backgroundRefreshDomain = "com.tamber.mt";
    constexpr const char* backgroundRefreshKey = "KeepAppsUpToDateAppList";

    Value topicsValue(const std::vector<std::string>& topics)
    {
        return Value(Value::Array(topics.begin(), topics.end()));
    }

    void reevaluateBackgroundDownloads(const std::string& bundleIdentifier)
    {
        if (auto downloadManager = Platform::current().downloadManager)
            downloadManager->reevaluateBackgroundDownloadsForBundleIdentifiers({ bundleIdentifier });
    }

} // namespace

std::optional<std::vector<std::string>> KTRemoteNotificationServer::_queue_cloudDatabaseTopicsForApplication(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (bundleIdentifier.empty() || !_appWorkspace)
        return std::nullopt;
    auto application = _appWorkspace->applicationProxyForIdentifier(bundleIdentifier);
    if (!application || !application->entitlements().isDictionary())
        return std::nullopt;
    const Value& services = application->entitlementValueForKey(cloudDatabaseEntitlement);
    if (!services.isArray())
        return std::nullopt;
    for (auto& service : services.arrayValue()) {
        if (service.isString() && Utf8::equalsIgnoringASCIICase(service.stringValue(), cloudDatabaseService))
            return std::vector<std::string> { cloudDatabaseTopicPrefix + bundleIdentifier };
    }
    return std::nullopt;
}

std::vector<std::string> KTRemoteNotificationServer::_queue_allTopicsForApplication(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    std::vector<std::string> topics { bundleIdentifier };
    if (auto cloudTopics = _queue_cloudDatabaseTopicsForApplication(bundleIdentifier))
        topics.insert(topics.end(), cloudTopics->begin(), cloudTopics->end());
    return topics;
}

void KTRemoteNotificationServer::_queue_calculateTopics()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    struct Lists {
        std::string environment;
        std::vector<std::string> enabled;
        std::vector<std::string> opportunistic;
        std::vector<std::string> ignored;
    };
    std::vector<Lists> environments;
    auto provider = systemStateProvider();
    for (auto& [bundleIdentifier, client] : _bundleIdentifiersToClients) {
        if (!provider || !provider->isApplicationInstalled(bundleIdentifier)
            || provider->isApplicationRestricted(bundleIdentifier))
            continue;
        bool important = _queue_isAppImportant(bundleIdentifier);
        bool pushEnabled = _queue_isPushedEnabledForApplication(bundleIdentifier);
        if (!pushEnabled && !client->doesWantPush())
            continue;
        // A record that wants push without an environment has nowhere to subscribe.
        if (!client->environment())
            continue;
        const std::string& environment = *client->environment();
        auto lists = std::find_if(environments.begin(), environments.end(),
            [&](const Lists& candidate) { return candidate.environment == environment; });
        if (lists == environments.end())
            lists = environments.insert(environments.end(), Lists { environment, {}, {}, {} });
        auto& target = important && pushEnabled ? lists->enabled
            : pushEnabled                       ? lists->opportunistic
                                                : lists->ignored;
        auto topics = _queue_allTopicsForApplication(bundleIdentifier);
        target.insert(target.end(), topics.begin(), topics.end());
    }
    std::erase_if(_environmentsToConnections, [&](auto& entry) {
        return std::none_of(environments.begin(), environments.end(),
            [&](const Lists& lists) { return lists.environment == entry.first; });
    });
    for (auto& lists : environments) {
        auto& connection = _environmentsToConnections[lists.environment];
        if (!connection) {
            connection
                = Platform::current().pushService->makeConnection(lists.environment, WorkQueue::main());
            connection->setDelegate(shared_from_this());
            connection->setUsesAppLaunchStats(true);
        }
        KT_REMOTE_LOG("Setting topics on connection: %@ enabled: %@ ignored: %@ opportunistic:%@",
            connection->description(), topicsValue(lists.enabled), topicsValue(lists.ignored),
            topicsValue(lists.opportunistic));
        connection->setEnabledTopics(lists.enabled);
        connection->setIgnoredTopics(lists.ignored);
        connection->setOpportunisticTopics(lists.opportunistic);
    }
}

void KTRemoteNotificationServer::_queue_moveTopicsForApp(
    const std::string& bundleIdentifier, int fromList, int toList)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto topics = _queue_allTopicsForApplication(bundleIdentifier);
    for (auto& [environment, connection] : _environmentsToConnections) {
        for (auto& topic : topics)
            connection->moveTopic(topic, fromList, toList);
    }
}

bool KTRemoteNotificationServer::_queue_isAppImportant(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _importantBundleIdentifiers.contains(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isAppForeground(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _foregroundBundleIdentifiers.contains(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isAppDebugging(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _debuggingBundleIdentifiers.contains(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isTesselEnabledForApplication(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _userNotificationEnabledBundleIdentifiers.contains(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isGazetteApplication(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto provider = systemStateProvider();
    return provider && provider->isGazetteApplication(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isGazetteContentBackgroundModeSupportedForApplication(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto provider = systemStateProvider();
    return provider && provider->isGazetteContentBackgroundModeSupportedForApplication(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isBackgroundAppRefreshSupportedForApplication(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto provider = systemStateProvider();
    return provider && provider->isBackgroundAppRefreshSupportedForApplication(bundleIdentifier);
}

bool KTRemoteNotificationServer::_queue_isBackgroundAppRefreshAllowedForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto& preferences = *Platform::current().preferences;
    // Another process writes the list; read it as it is now.
    preferences.reload(backgroundRefreshDomain);
    Value list = preferences.valueForKey(backgroundRefreshKey, backgroundRefreshDomain);
    if (!list.isDictionary())
        return true;
    const Value& allowed = list[bundleIdentifier];
    // Only a real answer counts; anything else is as if the application were not listed.
    if (!allowed.isNumber() && !allowed.isString())
        return true;
    return allowed.boolValue();
}

bool KTRemoteNotificationServer::_queue_isGazettePushEnabledForApplication(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!_queue_isGazetteApplication(bundleIdentifier)
        || !_queue_isBackgroundAppRefreshAllowedForBundleIdentifier(bundleIdentifier))
        return false;
    auto profileConnection = Platform::current().profileConnection;
    return profileConnection && profileConnection->isAutomaticAppUpdatesAllowed();
}

void KTRemoteNotificationServer::_queue_appImportanceChanged(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    bool important = _queue_isAppForeground(bundleIdentifier) || _queue_isAppDebugging(bundleIdentifier);
    if (important == _queue_isAppImportant(bundleIdentifier))
        return;
    if (important) {
        _importantBundleIdentifiers.insert(bundleIdentifier);
        _queue_moveTopicsForApp(
            bundleIdentifier, PushConnection::OpportunisticTopics, PushConnection::EnabledTopics);
    } else {
        _importantBundleIdentifiers.erase(bundleIdentifier);
        _queue_moveTopicsForApp(
            bundleIdentifier, PushConnection::EnabledTopics, PushConnection::OpportunisticTopics);
    }
}

void KTRemoteNotificationServer::_queue_appStateDidChange(const Value& info)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    const Value& bundleIdentifierValue = info[ApplicationStateBundleIdentifierKey];
    if (!bundleIdentifierValue.isString() || bundleIdentifierValue.stringValue().empty())
        return;
    const std::string& bundleIdentifier = bundleIdentifierValue.stringValue();
    const Value& stateValue = info[ApplicationStateKey];
    int64_t state = stateValue.isNumber() ? stateValue.integerValue() : 0;
    bool foreground = state == ApplicationStateForeground || state == ApplicationStateForegroundObscured;
    if (foreground != _queue_isAppForeground(bundleIdentifier)) {
        if (foreground)
            _queue_appDidBecomeForeground(bundleIdentifier);
        else
            _queue_appDidBecomeBackground(bundleIdentifier);
        _queue_appImportanceChanged(bundleIdentifier);
    }
    const Value& exitReason = info[ApplicationStateExitReasonKey];
    if (state == ApplicationStateTerminated && exitReason.isNumber()
        && exitReason.integerValue() == ApplicationExitReasonUserKilled)
        _queue_appDidGetKilledByUser(bundleIdentifier);
}

void KTRemoteNotificationServer::_queue_appDidBecomeForeground(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _foregroundBundleIdentifiers.insert(bundleIdentifier);
    if (!_queue_isGazetteApplication(bundleIdentifier))
        return;
    _queue_setBackgroundDeliveryDisabled(false, bundleIdentifier);
    if (_queue_isGazetteContentBackgroundModeSupportedForApplication(bundleIdentifier)
        && !_queue_isPushedEnabledForApplication(bundleIdentifier))
        reevaluateBackgroundDownloads(bundleIdentifier);
}

void KTRemoteNotificationServer::_queue_appDidBecomeBackground(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _foregroundBundleIdentifiers.erase(bundleIdentifier);
}

void KTRemoteNotificationServer::_queue_appDidGetKilledByUser(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (_queue_isGazetteApplication(bundleIdentifier))
        _queue_setBackgroundDeliveryDisabled(true, bundleIdentifier);
}

void KTRemoteNotificationServer::_queue_appDebugStateDidChange(
    const std::shared_ptr<ApplicationProcess>& process)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!process || process->bundleIdentifier().empty())
        return;
    const std::string& bundleIdentifier = process->bundleIdentifier();
    bool debugging = process->isBeingDebugged();
    if (debugging == _queue_isAppDebugging(bundleIdentifier))
        return;
    if (debugging)
        _debuggingBundleIdentifiers.insert(bundleIdentifier);
    else
        _debuggingBundleIdentifiers.erase(bundleIdentifier);
    _queue_appImportanceChanged(bundleIdentifier);
}

void KTRemoteNotificationServer::_queue_userNotificationSettingsDidChange(const Notification& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto change = KTNotificationSettingsChange::fromUserInfo(notification.userInfo);
    if (!change)
        return;
    const auto& [bundleIdentifier, enabled] = *change;
    if (enabled == _queue_isTesselEnabledForApplication(bundleIdentifier))
        return;
    if (enabled)
        _userNotificationEnabledBundleIdentifiers.insert(bundleIdentifier);
    else
        _userNotificationEnabledBundleIdentifiers.erase(bundleIdentifier);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    if (!client || !client->doesWantPush())
        return;
    if (enabled) {
        KT_REMOTE_LOG(
            "user notifications became enabled for %@, and it wants push, so we are now registering for push",
            bundleIdentifier);
        _queue_registerApplicationWithBundleIdentifier(bundleIdentifier, client->environment(), true);
    } else {
        KT_REMOTE_LOG(
            "user notifications became disabled for %@, and it wants push, so we are now calculating "
            "topics to update the ignore list",
            bundleIdentifier);
    }
    _queue_calculateTopics();
}

void KTRemoteNotificationServer::_queue_setBackgroundAppRefreshAllowed(
    bool allowed, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    if (!client) {
        client = std::make_shared<KTRemoteNotificationClient>(bundleIdentifier);
        _bundleIdentifiersToClients[bundleIdentifier] = client;
    }
    bool supported = _queue_isBackgroundAppRefreshSupportedForApplication(bundleIdentifier);
    if (allowed) {
        reevaluateBackgroundDownloads(bundleIdentifier);
        if (supported)
            _queue_requestTokenForClient(*client);
    }
    client->saveToDataStore();
    if (!client->doesWantPush() || !supported)
        return;
    if (allowed) {
        KT_REMOTE_LOG(
            "background app refresh became enabled for %@, and it wants push, so we are now registering "
            "for push",
            bundleIdentifier);
        _queue_registerApplicationWithBundleIdentifier(bundleIdentifier, client->environment(), true);
    } else {
        KT_REMOTE_LOG(
            "background app refresh became disabled for %@, and it wants push, so we are now calculating "
            "topics to update the ignore list",
            bundleIdentifier);
    }
    _queue_calculateTopics();
}

void KTRemoteNotificationServer::backgroundAppRefreshBundleIdentifierMappingWithResult(
    std::function<void(Value::Dictionary)> result)
{
    auto self = shared_from_this();
    _queue->async([self, result = std::move(result)] {
        Value::Dictionary mapping;
        for (auto& [bundleIdentifier, client] : self->_bundleIdentifiersToClients) {
            if (self->_queue_isBackgroundAppRefreshSupportedForApplication(bundleIdentifier))
                mapping[bundleIdentifier]
                    = Value(self->_queue_isBackgroundAppRefreshAllowedForBundleIdentifier(bundleIdentifier));
        }
        if (result)
            result(std::move(mapping));
    });
}

void KTRemoteNotificationServer::setAllowsBackgroundRefresh(bool allowed, const std::string& bundleIdentifier)
{
    auto self = shared_from_this();
    _queue->async([self, allowed, bundleIdentifier] {
        self->_queue_setBackgroundAppRefreshAllowed(allowed, bundleIdentifier);
    });
}

void KTRemoteNotificationServer::applicationsDidInstall(const std::vector<std::shared_ptr<ApplicationProxy>>&)
{
    auto self = shared_from_this();
    _queue->async([self] { self->_queue_calculateTopics(); });
}

void KTRemoteNotificationServer::applicationsDidUninstall(
    const std::vector<std::shared_ptr<ApplicationProxy>>& applications)
{
    auto self = shared_from_this();
    _queue->async([self, applications] {
        for (auto& application : applications) {
            if (!application)
                continue;
            self->_queue_invalidateTokenForBundleIdentifier(application->bundleIdentifier());
            self->_queue_removeClientForBundleIdentifier(application->bundleIdentifier());
        }
        self->_queue_calculateTopics();
    });
}

void KTRemoteNotificationServer::processManagerDidAddProcess(
    ProcessManager&, const std::shared_ptr<ApplicationProcess>& process)
{
    if (process)
        process->addObserver(shared_from_this());
}

void KTRemoteNotificationServer::processManagerDidRemoveProcess(
    ProcessManager&, const std::shared_ptr<ApplicationProcess>& process)
{
    if (process)
        process->removeObserver(this);
}

void KTRemoteNotificationServer::applicationProcessDebuggingStateDidChange(
    const std::shared_ptr<ApplicationProcess>& process)
{
    auto self = shared_from_this();
    _queue->async([self, process] { self->_queue_appDebugStateDidChange(process); });
}

void KTRemoteNotificationServer::_userNotificationSettingsDidChange(const Notification& notification)
{
    auto self = shared_from_this();
    Notification copy { notification.name, notification.object, notification.userInfo };
    _queue->async([self, copy] { self->_queue_userNotificationSettingsDidChange(copy); });
}

} // namespace tessel
