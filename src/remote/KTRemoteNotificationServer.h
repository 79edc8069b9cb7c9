#pragma once

#include "platform/applications/ApplicationWorkspace.h"
#include "platform/events/NotificationCenter.h"
#include "platform/foundation/Value.h"
#include "platform/ipc/AuditToken.h"
#include "platform/processes/ApplicationProcess.h"
#include "platform/processes/ProcessManager.h"
#include "platform/push/PushConnection.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class ApplicationStateMonitor;
class KTRemoteNotificationClient;
class KTSystemStateProviding;
class WorkQueue;

// Receives per-application tokens, on the server's queue.
class KTRemoteNotificationServerDelegate {
public:
    virtual ~KTRemoteNotificationServerDelegate() = default;
    virtual void didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier) = 0;
};

// The device's push registrations: one connection per environment in use, the
// applications' registration records, the topic lists built from them and the
// flow of per-application tokens. All state lives on one queue; public
// operations post to it and return, and results are called there.
class KTRemoteNotificationServer : public PushConnectionDelegate,
                                   public ApplicationWorkspaceObserver,
                                   public ProcessManagerObserver,
                                   public ApplicationProcessObserver,
                                   public std::enable_shared_from_this<KTRemoteNotificationServer> {
public:
    // The local service's label on purpose; the queue is a different one.
    static constexpr const char* queueLabel = "com.tamber.KTLocalNotificationService";
    // Last public token per environment, in the host's user defaults.
    static constexpr const char* lastKnownTokensKey = "VYEnvironmentsToLastKnownTokens";

    // Migrates the legacy registrations file, observes the platform and loads
    // the registrations on the queue.
    static std::shared_ptr<KTRemoteNotificationServer> initWithSystemStateProvider(
        std::shared_ptr<KTSystemStateProviding> systemStateProvider);
    explicit KTRemoteNotificationServer(std::shared_ptr<KTSystemStateProviding> systemStateProvider);
    ~KTRemoteNotificationServer() override;

    const std::shared_ptr<WorkQueue>& queue() const { return _queue; }

    void requestRemoteNotificationTokenWithEnvironment(
        const std::string& environment, const std::string& bundleIdentifier);
    void invalidateTokenForRemoteNotificationsForBundleIdentifier(const std::string& bundleIdentifier);
    void allowsRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, std::function<void(bool)> result);
    void remoteNotificationTypesForBundleIdentifier(
        const std::string& bundleIdentifier, std::function<void(uint64_t)> result);
    void backgroundAppRefreshBundleIdentifierMappingWithResult(std::function<void(Value::Dictionary)> result);
    void setAllowsBackgroundRefresh(bool allowed, const std::string& bundleIdentifier);
    // The caller's environment entitlement, if it names a known environment.
    static std::optional<std::string> environmentFromAuditToken(const AuditToken& auditToken);

    std::shared_ptr<KTRemoteNotificationServerDelegate> delegate() const;
    // Not retained.
    void setDelegate(const std::shared_ptr<KTRemoteNotificationServerDelegate>& delegate);
    std::shared_ptr<KTSystemStateProviding> systemStateProvider() const;
    void setSystemStateProvider(const std::shared_ptr<KTSystemStateProviding>& systemStateProvider);

    // Push connection callbacks: main queue, forwarded to the queue.
    void connectionDidReceiveToken(PushConnection& connection, const Bytes& token,
        const std::optional<std::string>& topic, const std::string& identifier) override;
    void connectionDidReceivePublicToken(PushConnection& connection, const Bytes& token) override;
    void connectionDidReceiveIncomingMessage(
        PushConnection& connection, const IncomingPushMessage& message) override;

    // Observer entry points.
    void applicationsDidInstall(const std::vector<std::shared_ptr<ApplicationProxy>>& applications) override;
    void applicationsDidUninstall(
        const std::vector<std::shared_ptr<ApplicationProxy>>& applications) override;
    void processManagerDidAddProcess(
        ProcessManager& manager, const std::shared_ptr<ApplicationProcess>& process) override;
    void processManagerDidRemoveProcess(
        ProcessManager& manager, const std::shared_ptr<ApplicationProcess>& process) override;
    void applicationProcessDebuggingStateDidChange(
        const std::shared_ptr<ApplicationProcess>& process) override;
    void _userNotificationSettingsDidChange(const Notification& notification);

    // Registrations and tokens.
    bool _queue_isPushedEnabledForApplication(const std::string& bundleIdentifier);
    void _queue_registerApplicationWithBundleIdentifier(const std::string& bundleIdentifier,
        const std::optional<std::string>& environment, bool appWantsPush);
    void _queue_requestTokenForClient(KTRemoteNotificationClient& client);
    void _queue_invalidateTokenForBundleIdentifier(const std::string& bundleIdentifier);
    void _queue_removeClientForBundleIdentifier(const std::string& bundleIdentifier);
    void _queue_setBackgroundDeliveryDisabled(bool disabled, const std::string& bundleIdentifier);
    void _queue_connectionDidReceiveToken(std::shared_ptr<PushConnection> connection, const Bytes& token,
        const std::optional<std::string>& topic, const std::string& identifier);
    void _queue_connectionDidReceivePublicToken(
        std::shared_ptr<PushConnection> connection, const Bytes& token);
    void _queue_connectionDidReceiveIncomingMessage(
        std::shared_ptr<PushConnection> connection, const IncomingPushMessage& message);

    // Topics and application state.
    std::vector<std::string> _queue_allTopicsForApplication(const std::string& bundleIdentifier);
    std::optional<std::vector<std::string>> _queue_cloudDatabaseTopicsForApplication(
        const std::string& bundleIdentifier);
    void _queue_calculateTopics();
    void _queue_moveTopicsForApp(const std::string& bundleIdentifier, int fromList, int toList);
    bool _queue_isAppImportant(const std::string& bundleIdentifier);
    bool _queue_isAppForeground(const std::string& bundleIdentifier);
    bool _queue_isAppDebugging(const std::string& bundleIdentifier);
    bool _queue_isTesselEnabledForApplication(const std::string& bundleIdentifier);
    bool _queue_isGazetteApplication(const std::string& bundleIdentifier);
    bool _queue_isGazetteContentBackgroundModeSupportedForApplication(const std::string& bundleIdentifier);
    bool _queue_isBackgroundAppRefreshSupportedForApplication(const std::string& bundleIdentifier);
    bool _queue_isBackgroundAppRefreshAllowedForBundleIdentifier(const std::string& bundleIdentifier);
    bool _queue_isGazettePushEnabledForApplication(const std::string& bundleIdentifier);
    void _queue_appImportanceChanged(const std::string& bundleIdentifier);
    void _queue_appStateDidChange(const Value& info);
    void _queue_appDidBecomeForeground(const std::string& bundleIdentifier);
    void _queue_appDidBecomeBackground(const std::string& bundleIdentifier);
    void _queue_appDidGetKilledByUser(const std::string& bundleIdentifier);
    void _queue_appDebugStateDidChange(const std::shared_ptr<ApplicationProcess>& process);
    void _queue_userNotificationSettingsDidChange(const Notification& notification);
    void _queue_setBackgroundAppRefreshAllowed(bool allowed, const std::string& bundleIdentifier);

    // For inspection on the queue.
    std::shared_ptr<KTRemoteNotificationClient> _queue_clientForBundleIdentifier(
        const std::string& bundleIdentifier);
    bool _queue_isWaitingForToken(const std::string& bundleIdentifier);

private:
    void start();
    void _queue_loadClients();
    static void migrateLegacyClients();
    std::shared_ptr<PushConnection> _queue_connectionForEnvironment(
        const std::optional<std::string>& environment);
    // Incoming messages: the record of an application that may have one (the
    // refusal goes to the system log), and the content-push throttle.
    std::shared_ptr<KTRemoteNotificationClient> _queue_clientAcceptingIncomingMessage(
        const std::string& bundleIdentifier);
    bool _queue_allowsGazetteDelivery(KTRemoteNotificationClient& client, Date pushDate, bool gazettePush,
        bool contentAvailable, bool foreground);

    // The two accessors may be used from any thread.
    mutable std::mutex _accessorLock;
    std::shared_ptr<KTSystemStateProviding> _systemStateProvider;
    std::weak_ptr<KTRemoteNotificationServerDelegate> _delegate;
    const std::shared_ptr<WorkQueue> _queue;
    std::map<std::string, std::shared_ptr<KTRemoteNotificationClient>> _bundleIdentifiersToClients;
    std::map<std::string, std::shared_ptr<PushConnection>> _environmentsToConnections;
    std::optional<std::set<std::string>> _bundleIdentifiersNeedingToken;
    std::set<std::string> _debuggingBundleIdentifiers;
    std::set<std::string> _foregroundBundleIdentifiers;
    std::set<std::string> _importantBundleIdentifiers;
    std::set<std::string> _userNotificationEnabledBundleIdentifiers;
    std::shared_ptr<ApplicationStateMonitor> _appStateMonitor;
    std::shared_ptr<ApplicationWorkspace> _appWorkspace;
};

} // namespace tessel
