#pragma once

#include "platform/applications/ApplicationWorkspace.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class DataProviderConnection;
class KTDefaultDataProvider;
class NotificationSettings;
class SettingsGateway;
class WorkQueue;

// Decides which applications get a default data provider, offers those to the
// bulletin service, removes them when applications go, and is the one place
// that reads and writes an application's section settings.
//
// Everything runs on one serial queue, shared with every provider it creates.
// Public operations post there and return; results come back on that queue. A
// request for an application that keeps its own provider is dropped with a
// warning and never answered.
class KTDefaultDataProviderFactory final : public ApplicationWorkspaceObserver,
                                           public std::enable_shared_from_this<KTDefaultDataProviderFactory> {
public:
    using SettingsResult = std::function<void(std::shared_ptr<NotificationSettings> settings)>;
    using TypesResult = std::function<void(uint64_t types)>;
    using RegisteredResult = std::function<void(bool registered)>;
    using BundleIdentifiersResult = std::function<void(std::set<std::string> bundleIdentifiers)>;

    static constexpr const char* queueLabel = "com.tamber.KTDefaultDataProviderFactory";

    // Created on first use; the first use also posts a full reload.
    static std::shared_ptr<KTDefaultDataProviderFactory> sharedInstance();

    KTDefaultDataProviderFactory();
    ~KTDefaultDataProviderFactory() override;
    KTDefaultDataProviderFactory(const KTDefaultDataProviderFactory&) = delete;
    KTDefaultDataProviderFactory& operator=(const KTDefaultDataProviderFactory&) = delete;

    const std::shared_ptr<WorkQueue>& queue() const { return _queue; }

    void notificationSettingsForBundleIdentifier(const std::string& bundleIdentifier, SettingsResult result);
    void notificationTypesForBundleIdentifier(const std::string& bundleIdentifier, TypesResult result);
    // Enable also switches the application's notifications on; update leaves the switch alone.
    void enableNotificationsWithSettings(std::shared_ptr<NotificationSettings> settings,
        const std::string& bundleIdentifier, SettingsResult result);
    void updateNotificationSettings(std::shared_ptr<NotificationSettings> settings,
        const std::string& bundleIdentifier, SettingsResult result);
    void enableNotificationsWithTypes(uint64_t types, const std::string& bundleIdentifier);
    void updateNotificationTypes(uint64_t types, const std::string& bundleIdentifier);
    void isBundleIdentifierRegistered(const std::string& bundleIdentifier, RegisteredResult result);
    void bundleIdentifiersWithEnabledNotifications(
        const std::set<std::string>& bundleIdentifiers, BundleIdentifiersResult result);

    // ApplicationWorkspaceObserver: either one triggers a full reload.
    void applicationsDidInstall(const std::vector<std::shared_ptr<ApplicationProxy>>& applications) override;
    void applicationsDidUninstall(
        const std::vector<std::shared_ptr<ApplicationProxy>>& applications) override;

private:
    using ProviderCompletion = std::function<void(const std::shared_ptr<KTDefaultDataProvider>& provider)>;

    void _start();
    void _queue_reloadDataProviders();
    void _queue_reconcileDataProviders(const std::set<std::string>& wanted);
    void _queue_createDataProviderWithBundleIdentifier(
        const std::string& bundleIdentifier, ProviderCompletion completion);
    void _queue_removeDataProviderWithBundleIdentifier(const std::string& bundleIdentifier);
    void _queue_notificationTypesForBundleIdentifier(const std::string& bundleIdentifier, TypesResult result);
    void _queue_notificationSettingsForBundleIdentifier(
        const std::string& bundleIdentifier, SettingsResult result);
    void _queue_setNotificationSettings(std::shared_ptr<NotificationSettings> settings,
        const std::string& bundleIdentifier, bool enable, SettingsResult result);
    void _queue_setNotificationTypes(uint64_t types, const std::string& bundleIdentifier, bool enable);

    std::map<std::string, std::shared_ptr<KTDefaultDataProvider>> _dataProvidersByBundleIdentifier;
    std::set<std::string> _registeredBundleIdentifiers;
    std::shared_ptr<ApplicationWorkspace> _appWorkspace;
    std::shared_ptr<DataProviderConnection> _dataProviderConnection;
    std::shared_ptr<SettingsGateway> _settingsGateway;
    std::shared_ptr<WorkQueue> _queue;
    // Creations the bulletin service has not confirmed yet, with everyone
    // waiting for them, so that racing requests share one provider.
    std::map<std::string, std::vector<ProviderCompletion>> _pendingCreations;
};

} // namespace tessel
