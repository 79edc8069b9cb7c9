#include "remote/KTRemoteNotificationServer.h"

#include "core/KTLogging.h"
#include "core/KTSystemStateProviding.h"
#include "platform/Platform.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "remote/KTRemoteNotificationClient.h"
#include "settings/KTNotificationSettingsService.h"
#include "tessel/Tessel.h"

namespace tessel {

namespace {

    constexpr const char* legacyDirectoryName = "RemoteNotification";
    constexpr const char* legacyFileName = "Clients.plist";
    // The three application states the server reacts to.
    constexpr int64_t observedStates
        = ApplicationStateTerminated | ApplicationStateForeground | ApplicationStateForegroundObscured;
    // Only the alert, badge and sound bits are ever answered.
    constexpr uint64_t remoteNotificationTypesMask = 7;

    const char* yesNo(bool flag) { return flag ? "YES" : "NO"; }

} // namespace

std::shared_ptr<KTRemoteNotificationServer> KTRemoteNotificationServer::initWithSystemStateProvider(
    std::shared_ptr<KTSystemStateProviding> systemStateProvider)
{
    auto server = std::make_shared<KTRemoteNotificationServer>(std::move(systemStateProvider));
    server->start();
    return server;
}

KTRemoteNotificationServer::KTRemoteNotificationServer(
    std::shared_ptr<KTSystemStateProviding> systemStateProvider)
    : _systemStateProvider(std::move(systemStateProvider))
    , _queue(WorkQueue::create(queueLabel))
    , _appWorkspace(ApplicationWorkspace::defaultWorkspace())
{
    migrateLegacyClients();
}

KTRemoteNotificationServer::~KTRemoteNotificationServer()
{
    if (_appStateMonitor)
        _appStateMonitor->invalidate();
    if (!Platform::isInstalled())
        return;
    auto& platform = Platform::current();
    platform.notificationCenter->removeObserver(this);
    if (platform.processManager) {
        platform.processManager->removeObserver(this);
        for (auto& process : platform.processManager->allApplicationProcesses())
            process->removeObserver(this);
    }
}

void KTRemoteNotificationServer::start()
{
    auto& platform = Platform::current();
    std::weak_ptr<KTRemoteNotificationServer> weakSelf = weak_from_this();
    platform.notificationCenter->addObserver(this, KTNotificationSettingsDidChangeNotification, nullptr,
        [weakSelf](const Notification& notification) {
            if (auto self = weakSelf.lock())
                self->_userNotificationSettingsDidChange(notification);
        });
    if (platform.applicationStates) {
        _appStateMonitor
            = platform.applicationStates->makeMonitor(observedStates, [weakSelf](const Value& info) {
                  auto self = weakSelf.lock();
                  if (!self)
                      return;
                  self->_queue->async([self, info] { self->_queue_appStateDidChange(info); });
              });
    }
    if (_appWorkspace)
        _appWorkspace->addObserver(shared_from_this());
    if (platform.processManager) {
        platform.processManager->addObserver(shared_from_this());
        // Processes that were running before the server came up.
        for (auto& process : platform.processManager->allApplicationProcesses())
            process->addObserver(shared_from_this());
    }
    auto self = shared_from_this();
    _queue->async([self] {
        self->_queue_loadClients();
        if (auto pushService = Platform::current().pushService)
            pushService->notifySafeToSendFilter();
    });
}

void KTRemoteNotificationServer::migrateLegacyClients()
{
    auto directory = Path::appendingComponent(Platform::current().libraryDirectory, legacyDirectoryName);
    auto path = Path::appendingComponent(directory, legacyFileName);
    if (!FileManager::fileExistsAtPath(path))
        return;
    KTRemoteNotificationClient::registerArchivableClasses();
    if (auto contents = FileManager::contentsAtPath(path)) {
        UnarchiveOptions options { .allowedClasses = { KTRemoteNotificationClient::archivedClassName },
            .unknownClassesDecodeAsNull = true };
        auto root = KeyedArchive::unarchive(*contents, options);
        if (root && root->isDictionary()) {
            std::vector<std::shared_ptr<ApplicationDataStore>> written;
            for (auto& [bundleIdentifier, value] : root->dictionaryValue()) {
                auto client = value.objectAs<KTRemoteNotificationClient>();
                if (!client)
                    continue;
                auto dataStore = ApplicationDataStore::storeForApplication(bundleIdentifier);
                if (dataStore
                    && dataStore->setArchivedObject(value, KTRemoteNotificationClient::dataStoreKey))
                    written.push_back(std::move(dataStore));
            }
            for (auto& dataStore : written)
                dataStore->synchronize();
        }
    }
    // A file that does not read is not read any better next time.
    FileManager::removeItemAtPath(directory);
}

void KTRemoteNotificationServer::_queue_loadClients()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto bundleIdentifiers = ApplicationDataStore::applicationsWithStores();
    for (auto& bundleIdentifier : bundleIdentifiers) {
        auto client = KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier);
        if (client && client->environment())
            _bundleIdentifiersToClients[bundleIdentifier] = client;
    }
    auto enabled = KTNotificationSettingsService::sharedInstance()->bundleIdentifiersWithEnabledNotifications(
        std::set<std::string>(bundleIdentifiers.begin(), bundleIdentifiers.end()));
    _userNotificationEnabledBundleIdentifiers.insert(enabled.begin(), enabled.end());
    _queue_calculateTopics();
}

std::shared_ptr<KTRemoteNotificationServerDelegate> KTRemoteNotificationServer::delegate() const
{
    std::lock_guard lock(_accessorLock);
    return _delegate.lock();
}

void KTRemoteNotificationServer::setDelegate(
    const std::shared_ptr<KTRemoteNotificationServerDelegate>& delegate)
{
    std::lock_guard lock(_accessorLock);
    _delegate = delegate;
}

std::shared_ptr<KTSystemStateProviding> KTRemoteNotificationServer::systemStateProvider() const
{
    std::lock_guard lock(_accessorLock);
    return _systemStateProvider;
}

void KTRemoteNotificationServer::setSystemStateProvider(
    const std::shared_ptr<KTSystemStateProviding>& systemStateProvider)
{
    std::lock_guard lock(_accessorLock);
    // A copy: moving would swap raw pointers of the exported type, whose
    // instantiation the sanitizer build would export.
    _systemStateProvider = systemStateProvider;
}

void KTRemoteNotificationServer::requestRemoteNotificationTokenWithEnvironment(
    const std::string& environment, const std::string& bundleIdentifier)
{
    auto self = shared_from_this();
    _queue->async([self, environment, bundleIdentifier] {
        self->_queue_registerApplicationWithBundleIdentifier(bundleIdentifier, environment, true);
    });
}

void KTRemoteNotificationServer::invalidateTokenForRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier] {
        self->_queue_registerApplicationWithBundleIdentifier(bundleIdentifier, std::nullopt, false);
    });
}

void KTRemoteNotificationServer::allowsRemoteNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, std::function<void(bool)> result)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier, result = std::move(result)] {
        bool allowed = self->_queue_isPushedEnabledForApplication(bundleIdentifier);
        if (result)
            result(allowed);
    });
}

void KTRemoteNotificationServer::remoteNotificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, std::function<void(uint64_t)> result)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier, result = std::move(result)] {
        uint64_t types = 0;
        if (self->_queue_isPushedEnabledForApplication(bundleIdentifier))
            types = KTNotificationSettingsService::sharedInstance()->notificationTypesForBundleIdentifier(
                        bundleIdentifier)
                & remoteNotificationTypesMask;
        if (result)
            result(types);
    });
}

std::optional<std::string> KTRemoteNotificationServer::environmentFromAuditToken(const AuditToken& auditToken)
{
    Value entitlement
        = entitlementValueForAuditToken(auditToken, KTRemoteNotificationsEnvironmentEntitlement);
    std::optional<std::string> environment;
    if (entitlement.isString())
        environment = entitlement.stringValue();
    return KTRemoteNotificationClient::validEnvironmentFromEnvironment(environment);
}

std::shared_ptr<KTRemoteNotificationClient> KTRemoteNotificationServer::_queue_clientForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto found = _bundleIdentifiersToClients.find(bundleIdentifier);
    return found == _bundleIdentifiersToClients.end() ? nullptr : found->second;
}

bool KTRemoteNotificationServer::_queue_isWaitingForToken(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _bundleIdentifiersNeedingToken && _bundleIdentifiersNeedingToken->contains(bundleIdentifier);
}

std::shared_ptr<PushConnection> KTRemoteNotificationServer::_queue_connectionForEnvironment(
    const std::optional<std::string>& environment)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!environment)
        return nullptr;
    auto found = _environmentsToConnections.find(*environment);
    return found == _environmentsToConnections.end() ? nullptr : found->second;
}

bool KTRemoteNotificationServer::_queue_isPushedEnabledForApplication(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    if (!client || !client->doesWantPush()) {
        if (client)
            client->setPushDisabledReason("client hasn't registered for push");
        return false;
    }
    bool supportsBackgroundRefresh = _queue_isBackgroundAppRefreshSupportedForApplication(bundleIdentifier);
    bool backgroundRefreshEnabled = _queue_isBackgroundAppRefreshAllowedForBundleIdentifier(bundleIdentifier);
    bool allowsUserNotifications = _queue_isTesselEnabledForApplication(bundleIdentifier);
    if ((supportsBackgroundRefresh && backgroundRefreshEnabled) || allowsUserNotifications) {
        client->setPushDisabledReason(std::nullopt);
        return true;
    }
    client->setPushDisabledReason(format("client is registered for push, but supportsBackgroundRefresh: %@; "
                                         "backgroundRefreshEnabled: %@; allowsUserNotifications: %@",
        yesNo(supportsBackgroundRefresh), yesNo(backgroundRefreshEnabled), yesNo(allowsUserNotifications)));
    return false;
}

void KTRemoteNotificationServer::_queue_registerApplicationWithBundleIdentifier(
    const std::string& bundleIdentifier, const std::optional<std::string>& environment, bool appWantsPush)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    bool changed = false;
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    if (!client) {
        client = std::make_shared<KTRemoteNotificationClient>(bundleIdentifier);
        _bundleIdentifiersToClients[bundleIdentifier] = client;
        changed = true;
    }
    if (!environment || client->environment() != environment) {
        client->setEnvironment(environment);
        changed = true;
    }
    if (client->doesWantPush() != appWantsPush) {
        client->setWantsPush(appWantsPush);
        changed = true;
    }
    if (_queue_isPushedEnabledForApplication(bundleIdentifier)) {
        auto connection = _queue_connectionForEnvironment(client->environment());
        if (!connection) {
            _queue_calculateTopics();
            connection = _queue_connectionForEnvironment(client->environment());
        }
        if (!_bundleIdentifiersNeedingToken)
            _bundleIdentifiersNeedingToken.emplace();
        KT_REMOTE_LOG("Adding %@ (%@) to the set of apps waiting to post about their per-app push token. "
                      "Requesting per-app token.",
            bundleIdentifier, client->tokenIdentifier());
        _bundleIdentifiersNeedingToken->insert(bundleIdentifier);
        if (connection)
            connection->requestTokenForTopic(bundleIdentifier, client->tokenIdentifier());
    }
    if (changed) {
        client->saveToDataStore();
        _queue_calculateTopics();
    }
}

void KTRemoteNotificationServer::_queue_requestTokenForClient(KTRemoteNotificationClient& client)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    KT_REMOTE_LOG(
        "Requesting per-app token for %@ (%@)", client.bundleIdentifier(), client.tokenIdentifier());
    if (auto connection = _queue_connectionForEnvironment(client.environment()))
        connection->requestTokenForTopic(client.bundleIdentifier(), client.tokenIdentifier());
}

void KTRemoteNotificationServer::_queue_invalidateTokenForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    if (!client)
        return;
    if (auto connection = _queue_connectionForEnvironment(client->environment()))
        connection->invalidateTokenForTopic(bundleIdentifier, client->tokenIdentifier());
}

void KTRemoteNotificationServer::_queue_removeClientForBundleIdentifier(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _bundleIdentifiersToClients.erase(bundleIdentifier);
}

void KTRemoteNotificationServer::_queue_setBackgroundDeliveryDisabled(
    bool disabled, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    if (!client || client->backgroundDeliveryDisabled() == disabled)
        return;
    client->setBackgroundDeliveryDisabled(disabled);
    client->saveToDataStore();
}

void KTRemoteNotificationServer::connectionDidReceiveToken(PushConnection& connection, const Bytes& token,
    const std::optional<std::string>& topic, const std::string& identifier)
{
    auto self = shared_from_this();
    auto strongConnection = connection.shared_from_this();
    _queue->async([self, strongConnection, token, topic, identifier] {
        self->_queue_connectionDidReceiveToken(strongConnection, token, topic, identifier);
    });
}

void KTRemoteNotificationServer::connectionDidReceivePublicToken(
    PushConnection& connection, const Bytes& token)
{
    auto self = shared_from_this();
    auto strongConnection = connection.shared_from_this();
    _queue->async([self, strongConnection, token] {
        self->_queue_connectionDidReceivePublicToken(strongConnection, token);
    });
}

void KTRemoteNotificationServer::connectionDidReceiveIncomingMessage(
    PushConnection& connection, const IncomingPushMessage& message)
{
    auto self = shared_from_this();
    auto strongConnection = connection.shared_from_this();
    _queue->async([self, strongConnection, message] {
        self->_queue_connectionDidReceiveIncomingMessage(strongConnection, message);
    });
}

void KTRemoteNotificationServer::_queue_connectionDidReceiveToken(std::shared_ptr<PushConnection>,
    const Bytes& token, const std::optional<std::string>& topic, const std::string&)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    Value tokenValue(token);
    if (!topic) {
        Platform::log(LogPriority::Error,
            format("%@ received token %@ for invalid topic %@",
                format("<KTRemoteNotificationServer 0x%lx>", reinterpret_cast<uintptr_t>(this)), tokenValue,
                Value()));
        return;
    }
    const std::string& bundleIdentifier = *topic;
    if (bundleIdentifier.starts_with("com.tamber.skyvault-container.")) {
        KT_REMOTE_LOG("Do not deliver Driftkeep tokens to app %@", bundleIdentifier);
        return;
    }
    KT_REMOTE_LOG("Received per-app token %@ for topic %@", tokenValue, bundleIdentifier);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    bool differs = !client || client->lastKnownDeviceToken() != token;
    bool waiting = _queue_isWaitingForToken(bundleIdentifier);
    KT_REMOTE_LOG("Does this token differ from our cache? %@.  We will %@ post about this update.",
        yesNo(differs), waiting || differs ? "" : " not");
    size_t pending = 0;
    if (_bundleIdentifiersNeedingToken) {
        _bundleIdentifiersNeedingToken->erase(bundleIdentifier);
        if (_bundleIdentifiersNeedingToken->empty())
            _bundleIdentifiersNeedingToken.reset();
        else
            pending = _bundleIdentifiersNeedingToken->size();
    }
    KT_REMOTE_LOG("Still waiting to post for %lu pending tokens", pending);
    auto provider = systemStateProvider();
    if (!(waiting || differs) || !provider || !provider->isApplicationInstalled(bundleIdentifier))
        return;
    if (auto strongDelegate = delegate())
        strongDelegate->didReceiveDeviceToken(token, bundleIdentifier);
    if (client) {
        client->setLastKnownDeviceToken(token);
        client->saveToDataStore();
    }
}

void KTRemoteNotificationServer::_queue_connectionDidReceivePublicToken(
    std::shared_ptr<PushConnection> connection, const Bytes& token)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    std::optional<std::string> environment;
    for (auto& [name, candidate] : _environmentsToConnections) {
        if (candidate == connection)
            environment = name;
    }
    if (!environment)
        return;
    auto& platform = Platform::current();
    Value stored = platform.preferences->valueForKey(lastKnownTokensKey, platform.hostPreferencesDomain);
    // Someone else's defaults: anything but a dictionary counts as no cache.
    std::optional<Value::Dictionary> cache;
    if (stored.isDictionary())
        cache = stored.dictionaryValue();
    Value cached = cache ? (*cache)[*environment] : Value();
    bool same = cached.isData() && cached.dataValue() == token;
    Value tokenValue(token);
    KT_REMOTE_LOG("Comparing cached token %@ with received token %@", cached, tokenValue);
    if (same) {
        KT_REMOTE_LOG("Received public token %@ that matches cached token %@ for environment %@", tokenValue,
            Value(*cache), *environment);
        return;
    }
    if (!cache)
        cache.emplace();
    (*cache)[*environment] = tokenValue;
    platform.preferences->setValue(Value(*cache), lastKnownTokensKey, platform.hostPreferencesDomain);

    KT_REMOTE_LOG("Flushing stale per-app tokens for %lu apps", _bundleIdentifiersToClients.size());
    for (auto& [bundleIdentifier, client] : _bundleIdentifiersToClients) {
        if (client->environment() == environment)
            client->setLastKnownDeviceToken(std::nullopt);
    }
    auto processes = platform.processManager ? platform.processManager->allApplicationProcesses()
                                             : std::vector<std::shared_ptr<ApplicationProcess>> {};
    KT_REMOTE_LOG("Re-requesting per-app tokens for %lu running apps", processes.size());
    for (auto& process : processes) {
        auto client = _queue_clientForBundleIdentifier(process->bundleIdentifier());
        if (!client || client->environment() != environment
            || !_queue_isPushedEnabledForApplication(process->bundleIdentifier()))
            continue;
        KT_REMOTE_LOG("Requesting per-app token for %@ (%@) didReceivePublicToken",
            client->bundleIdentifier(), client->tokenIdentifier());
        connection->requestTokenForTopic(client->bundleIdentifier(), client->tokenIdentifier());
    }
    for (auto& [bundleIdentifier, client] : _bundleIdentifiersToClients) {
        if (client->environment() == environment)
            client->saveToDataStore();
    }
}

} // namespace tessel
