#pragma once

#include "platform/ipc/IpcListener.h"
#include "remote/KTRemoteNotificationServer.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"

#include <memory>
#include <string>

namespace tessel {

class KTConnectionTable;
class KTSystemStateProviding;
class WorkQueue;

// Publishes the registrar service: applications, and system clients acting for
// them, register notification settings, read their settings and types, ask for
// push tokens and get their tokens back. Each request is checked against the
// caller before it is forwarded; a refused one is logged and dropped unanswered.
// Owns the push server and hears its tokens.
class KTNotificationRegistrarConnectionListener final
    : public IpcListenerDelegate,
      public KTSNotificationRegistrarServerProtocol,
      public KTRemoteNotificationServerDelegate,
      public std::enable_shared_from_this<KTNotificationRegistrarConnectionListener> {
public:
    static constexpr const char* queueLabel = "com.tamber.KTNotificationRegistrarConnectionListener";

    // Creates the push server with the provider, then publishes the service.
    static std::shared_ptr<KTNotificationRegistrarConnectionListener> initWithSystemStateProvider(
        std::shared_ptr<KTSystemStateProviding> systemStateProvider);
    explicit KTNotificationRegistrarConnectionListener(
        std::shared_ptr<KTSystemStateProviding> systemStateProvider);
    ~KTNotificationRegistrarConnectionListener() override;

    const std::shared_ptr<KTRemoteNotificationServer>& remoteNotificationServer() const
    {
        return _removeNotificationServer;
    }

    // Stops publishing the service and ends its connections, which release
    // the listener they export; for an orderly shutdown.
    void invalidate();

    bool listenerShouldAcceptNewConnection(
        IpcListener& listener, const std::shared_ptr<IpcConnection>& connection) override;

    void setObservingRemoteNotifications(
        bool observing, const std::string& bundleIdentifier, Completion completion) override;
    void invalidateTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, Completion completion) override;
    void registerNotificationSettings(std::shared_ptr<NotificationSettings> settings,
        const std::string& bundleIdentifier, SettingsResult result) override;
    void registerBadgeSettingForBundleIdentifier(
        const std::string& bundleIdentifier, Completion completion) override;
    void notificationSettingsForBundleIdentifier(
        const std::string& bundleIdentifier, SettingsResult result) override;
    void notificationTypesForBundleIdentifier(
        const std::string& bundleIdentifier, TypesResult result) override;
    void allowsRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, BoolResult result) override;
    void remoteNotificationTypesForBundleIdentifier(
        const std::string& bundleIdentifier, TypesResult result) override;
    void registerRemoteNotificationTypes(
        uint64_t types, const std::string& bundleIdentifier, ErrorResult result) override;
    void requestTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, ErrorResult result) override;
    void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result) override;
    void setAllowsBackgroundRefresh(
        bool allowed, const std::string& bundleIdentifier, Completion completion) override;

    // From the push server, on its queue.
    void didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier) override;
    void _queue_didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier);

private:
    void start();
    // Against the connection whose request is being handled; a refusal is
    // logged and drops the request.
    static bool _isAllowedToRegisterForBundleIdentifier(const std::string& bundleIdentifier);
    static bool _isAllowedToAdministerRemoteNotificationSettings();

    const std::shared_ptr<KTRemoteNotificationServer> _removeNotificationServer;
    const std::shared_ptr<WorkQueue> _queue;
    std::shared_ptr<IpcListener> _listener;
    const std::shared_ptr<KTConnectionTable> _connections;
};

} // namespace tessel
