#include "bulletins/KTDefaultDataProviderFactory.h"

#include "bulletins/KTDefaultDataProvider.h"
#include "core/KTApplicationProxyAdditions.h"
#include "core/KTSectionInfoAdditions.h"
#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/bulletins/BulletinService.h"
#include "platform/bulletins/DataProviderConnection.h"
#include "platform/bulletins/SettingsGateway.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/Format.h"
#include "platform/logging/SystemLog.h"
#include "platform/records/NotificationSettings.h"
#include "store/KTNotificationStore.h"

#include <algorithm>
#include <mutex>

namespace tessel {

namespace {

    bool shouldUseDefaultDataProvider(const std::string& bundleIdentifier)
    {
        auto application = ApplicationProxy::applicationProxyForIdentifier(bundleIdentifier);
        return application && kt_shouldUseDefaultDataProvider(*application);
    }

    bool sameCategories(const NotificationCategories& a, const NotificationCategories& b)
    {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
            [](const auto& x, const auto& y) { return x && y && x->isEqual(*y); });
    }

} // namespace

std::shared_ptr<KTDefaultDataProviderFactory> KTDefaultDataProviderFactory::sharedInstance()
{
    // Never destroyed: it lives for the process, and its providers reach other
    // singletons that exit-time destruction may already have taken down.
    static std::once_flag once;
    static std::shared_ptr<KTDefaultDataProviderFactory>* shared;
    std::call_once(once, [] {
        shared = new std::shared_ptr<KTDefaultDataProviderFactory>(
            std::make_shared<KTDefaultDataProviderFactory>());
        (*shared)->_start();
    });
    return *shared;
}

KTDefaultDataProviderFactory::KTDefaultDataProviderFactory()
    : _queue(WorkQueue::create(queueLabel))
{
    auto& platform = Platform::current();
    if (platform.bulletinService) {
        _dataProviderConnection = platform.bulletinService->makeDataProviderConnection(queueLabel, _queue);
        _settingsGateway = platform.bulletinService->makeSettingsGateway(_queue);
    } else {
        Platform::log(
            LogPriority::Error, "KTDefaultDataProviderFactory: the platform has no bulletin service");
    }
    _appWorkspace = ApplicationWorkspace::defaultWorkspace();
}

KTDefaultDataProviderFactory::~KTDefaultDataProviderFactory()
{
    // The workspace holds observers weakly: it stops calling a factory that is gone.
    if (_dataProviderConnection)
        _dataProviderConnection->invalidate();
    if (_settingsGateway)
        _settingsGateway->invalidate();
}

void KTDefaultDataProviderFactory::_start()
{
    // The workspace keeps observers weakly; the factory lives for the process.
    if (_appWorkspace)
        _appWorkspace->addObserver(shared_from_this());
    _queue->async([self = shared_from_this()] { self->_queue_reloadDataProviders(); });
}

void KTDefaultDataProviderFactory::applicationsDidInstall(
    const std::vector<std::shared_ptr<ApplicationProxy>>&)
{
    _queue->async([self = shared_from_this()] { self->_queue_reloadDataProviders(); });
}

void KTDefaultDataProviderFactory::applicationsDidUninstall(
    const std::vector<std::shared_ptr<ApplicationProxy>>&)
{
    _queue->async([self = shared_from_this()] { self->_queue_reloadDataProviders(); });
}

void KTDefaultDataProviderFactory::_queue_reloadDataProviders()
{
    KT_ASSERT_ON_QUEUE(_queue);
    if (!_settingsGateway)
        return;
    _settingsGateway->getSectionInfoWithCompletion(
        [self = shared_from_this()](std::vector<SectionInfo> infos) {
            // Asked afresh: an application may have stopped qualifying since its provider was made.
            std::set<std::string> wanted;
            for (const auto& info : infos) {
                if (shouldUseDefaultDataProvider(info.sectionID))
                    wanted.insert(info.sectionID);
            }
            self->_queue_reconcileDataProviders(wanted);
        });
}

void KTDefaultDataProviderFactory::_queue_reconcileDataProviders(const std::set<std::string>& wanted)
{
    KT_ASSERT_ON_QUEUE(_queue);
    std::vector<std::string> unwanted;
    for (const auto& [bundleIdentifier, provider] : _dataProvidersByBundleIdentifier) {
        if (!wanted.contains(bundleIdentifier))
            unwanted.push_back(bundleIdentifier);
    }
    for (const auto& [bundleIdentifier, waiting] : _pendingCreations) {
        if (!wanted.contains(bundleIdentifier) && !shouldUseDefaultDataProvider(bundleIdentifier))
            unwanted.push_back(bundleIdentifier);
    }
    for (const auto& bundleIdentifier : unwanted)
        _queue_removeDataProviderWithBundleIdentifier(bundleIdentifier);
    for (const auto& bundleIdentifier : wanted) {
        if (!_dataProvidersByBundleIdentifier.contains(bundleIdentifier))
            _queue_createDataProviderWithBundleIdentifier(bundleIdentifier, nullptr);
    }
}

void KTDefaultDataProviderFactory::_queue_createDataProviderWithBundleIdentifier(
    const std::string& bundleIdentifier, ProviderCompletion completion)
{
    KT_ASSERT_ON_QUEUE(_queue);
    if (auto found = _dataProvidersByBundleIdentifier.find(bundleIdentifier);
        found != _dataProvidersByBundleIdentifier.end()) {
        if (completion)
            completion(found->second);
        return;
    }
    if (auto pending = _pendingCreations.find(bundleIdentifier); pending != _pendingCreations.end()) {
        if (completion)
            pending->second.push_back(std::move(completion));
        return;
    }
    auto application = ApplicationProxy::applicationProxyForIdentifier(bundleIdentifier);
    if (!application || !kt_shouldUseDefaultDataProvider(*application)) {
        Platform::log(LogPriority::Warning,
            format("Warning: Do not register notification settings for an app that is using a custom data "
                   "provider: %@",
                bundleIdentifier));
        return;
    }
    if (!_dataProviderConnection)
        return;
    auto provider
        = std::make_shared<KTDefaultDataProvider>(bundleIdentifier, application->localizedName(), _queue);
    _registeredBundleIdentifiers.insert(bundleIdentifier);
    auto& waiting = _pendingCreations[bundleIdentifier];
    if (completion)
        waiting.push_back(std::move(completion));
    _dataProviderConnection->addDataProvider(provider,
        [self = shared_from_this(), provider, bundleIdentifier](std::shared_ptr<DataProviderProxy> proxy) {
            KT_ASSERT_ON_QUEUE(self->_queue);
            auto pending = self->_pendingCreations.find(bundleIdentifier);
            if (pending == self->_pendingCreations.end()) {
                // Removed while the service was taking it.
                provider->invalidate();
                if (!self->_dataProvidersByBundleIdentifier.contains(bundleIdentifier))
                    self->_dataProviderConnection->removeDataProviderWithSectionID(bundleIdentifier);
                return;
            }
            auto waiting = std::move(pending->second);
            self->_pendingCreations.erase(pending);
            provider->setProxy(std::move(proxy));
            self->_dataProvidersByBundleIdentifier[bundleIdentifier] = provider;
            for (const auto& completion : waiting)
                completion(provider);
        });
}

void KTDefaultDataProviderFactory::_queue_removeDataProviderWithBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(_queue);
    if (auto found = _dataProvidersByBundleIdentifier.find(bundleIdentifier);
        found != _dataProvidersByBundleIdentifier.end()) {
        found->second->uninstall();
        _dataProvidersByBundleIdentifier.erase(found);
    } else if (_pendingCreations.erase(bundleIdentifier)) {
        // Its provider is dropped when the service answers; its records go now.
        KTNotificationStore::sharedInstance()->unregisterAppForNotificationsWithBundleID(bundleIdentifier);
    }
    if (_dataProviderConnection)
        _dataProviderConnection->removeDataProviderWithSectionID(bundleIdentifier);
    _registeredBundleIdentifiers.erase(bundleIdentifier);
}

void KTDefaultDataProviderFactory::_queue_notificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, TypesResult result)
{
    KT_ASSERT_ON_QUEUE(_queue);
    if (!_settingsGateway)
        return;
    _settingsGateway->getSectionInfoForSectionID(
        bundleIdentifier, [result = std::move(result)](std::optional<SectionInfo> info) {
            if (result)
                result(info ? kt_effectiveNotificationTypes(*info) : 0);
        });
}

void KTDefaultDataProviderFactory::_queue_notificationSettingsForBundleIdentifier(
    const std::string& bundleIdentifier, SettingsResult result)
{
    KT_ASSERT_ON_QUEUE(_queue);
    _queue_notificationTypesForBundleIdentifier(bundleIdentifier,
        [self = shared_from_this(), bundleIdentifier, result = std::move(result)](uint64_t types) {
            KT_ASSERT_ON_QUEUE(self->_queue);
            if (!result)
                return;
            auto found = self->_dataProvidersByBundleIdentifier.find(bundleIdentifier);
            auto categories = found == self->_dataProvidersByBundleIdentifier.end()
                ? NotificationCategories()
                : found->second->categories();
            result(NotificationSettings::settingsForTypes(types, categories));
        });
}

void KTDefaultDataProviderFactory::_queue_setNotificationSettings(
    std::shared_ptr<NotificationSettings> settings, const std::string& bundleIdentifier, bool enable,
    SettingsResult result)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto validated = settings ? settings->validatedSettings() : NotificationSettings::settingsForTypes(0, {});
    _queue_createDataProviderWithBundleIdentifier(bundleIdentifier,
        [self = shared_from_this(), validated, bundleIdentifier, enable, result = std::move(result)](
            const std::shared_ptr<KTDefaultDataProvider>& provider) {
            // An application registers on every launch; a durable write of
            // what is already stored would be its whole cost.
            if (!sameCategories(provider->categories(), validated->categories()))
                provider->setCategories(validated->categories());
            self->_settingsGateway->getSectionInfoForSectionID(bundleIdentifier,
                [self, provider, validated, bundleIdentifier, enable, result](
                    std::optional<SectionInfo> info) {
                    KT_ASSERT_ON_QUEUE(self->_queue);
                    // Uninstalled meanwhile: nothing is written for it.
                    auto found = self->_dataProvidersByBundleIdentifier.find(bundleIdentifier);
                    if (found == self->_dataProvidersByBundleIdentifier.end() || found->second != provider)
                        return;
                    auto updated = kt_sectionInfoWithNotificationTypes(
                        info ? *info : provider->defaultSectionInfo(), validated->types());
                    if (enable)
                        updated.allowsNotifications = true;
                    self->_settingsGateway->setSectionInfo(updated, bundleIdentifier);
                    self->_queue_notificationSettingsForBundleIdentifier(bundleIdentifier, result);
                });
        });
}

void KTDefaultDataProviderFactory::_queue_setNotificationTypes(
    uint64_t types, const std::string& bundleIdentifier, bool enable)
{
    KT_ASSERT_ON_QUEUE(_queue);
    _queue_createDataProviderWithBundleIdentifier(bundleIdentifier,
        [self = shared_from_this(), types, bundleIdentifier, enable](
            const std::shared_ptr<KTDefaultDataProvider>&) {
            self->_settingsGateway->updateSectionInfoForSectionID(
                bundleIdentifier, [types, enable](const SectionInfo& info) {
                    auto updated = kt_sectionInfoWithNotificationTypes(info, types);
                    if (enable)
                        updated.allowsNotifications = true;
                    return updated;
                });
        });
}

void KTDefaultDataProviderFactory::notificationSettingsForBundleIdentifier(
    const std::string& bundleIdentifier, SettingsResult result)
{
    _queue->async([self = shared_from_this(), bundleIdentifier, result = std::move(result)]() mutable {
        self->_queue_notificationSettingsForBundleIdentifier(bundleIdentifier, std::move(result));
    });
}

void KTDefaultDataProviderFactory::notificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, TypesResult result)
{
    _queue->async([self = shared_from_this(), bundleIdentifier, result = std::move(result)]() mutable {
        self->_queue_notificationTypesForBundleIdentifier(bundleIdentifier, std::move(result));
    });
}

void KTDefaultDataProviderFactory::enableNotificationsWithSettings(
    std::shared_ptr<NotificationSettings> settings, const std::string& bundleIdentifier,
    SettingsResult result)
{
    _queue->async([self = shared_from_this(), settings = std::move(settings), bundleIdentifier,
                      result = std::move(result)]() mutable {
        self->_queue_setNotificationSettings(std::move(settings), bundleIdentifier, true, std::move(result));
    });
}

void KTDefaultDataProviderFactory::updateNotificationSettings(std::shared_ptr<NotificationSettings> settings,
    const std::string& bundleIdentifier, SettingsResult result)
{
    _queue->async([self = shared_from_this(), settings = std::move(settings), bundleIdentifier,
                      result = std::move(result)]() mutable {
        self->_queue_setNotificationSettings(std::move(settings), bundleIdentifier, false, std::move(result));
    });
}

void KTDefaultDataProviderFactory::enableNotificationsWithTypes(
    uint64_t types, const std::string& bundleIdentifier)
{
    _queue->async([self = shared_from_this(), types, bundleIdentifier] {
        self->_queue_setNotificationTypes(types, bundleIdentifier, true);
    });
}

void KTDefaultDataProviderFactory::updateNotificationTypes(
    uint64_t types, const std::string& bundleIdentifier)
{
    _queue->async([self = shared_from_this(), types, bundleIdentifier] {
        self->_queue_setNotificationTypes(types, bundleIdentifier, false);
    });
}

void KTDefaultDataProviderFactory::isBundleIdentifierRegistered(
    const std::string& bundleIdentifier, RegisteredResult result)
{
    _queue->async([self = shared_from_this(), bundleIdentifier, result = std::move(result)] {
        if (result)
            result(self->_registeredBundleIdentifiers.contains(bundleIdentifier));
    });
}

void KTDefaultDataProviderFactory::bundleIdentifiersWithEnabledNotifications(
    const std::set<std::string>& bundleIdentifiers, BundleIdentifiersResult result)
{
    _queue->async([self = shared_from_this(), bundleIdentifiers, result = std::move(result)]() mutable {
        if (!self->_settingsGateway)
            return;
        self->_settingsGateway->getSectionInfoForSectionIDs(
            bundleIdentifiers, [result = std::move(result)](std::vector<SectionInfo> infos) {
                std::set<std::string> enabled;
                for (const auto& info : infos) {
                    if (kt_isEnabled(info))
                        enabled.insert(info.sectionID);
                }
                if (result)
                    result(std::move(enabled));
            });
    });
}

} // namespace tessel
