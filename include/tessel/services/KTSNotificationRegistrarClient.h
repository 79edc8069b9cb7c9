#ifndef TESSEL_SERVICES_KTSNOTIFICATIONREGISTRARCLIENT_H
#define TESSEL_SERVICES_KTSNOTIFICATIONREGISTRARCLIENT_H

#include <tessel/TesselExport.h>
#include <tessel/services/ClientOptions.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tessel {

// The answer of a remote registration that did not succeed.
struct RegistrationError {
    std::string domain;
    int64_t code = 0;
    std::string localizedDescription;

    bool operator==(const RegistrationError&) const = default;
};

// The registrar service: notification settings, badges, push tokens and
// background refresh switches. Calls return at once; results come through the
// executor of the options, failures through their error handler (see
// ClientOptions). A client stops its callbacks when it is destroyed, which
// may happen inside one of them.
class TESSEL_EXPORT KTSNotificationRegistrarClient {
public:
    using Completion = std::function<void()>;
    // Validated settings; none when the application has none.
    using SettingsResult = std::function<void(std::optional<ArchivedRecord> settings)>;
    using TypesResult = std::function<void(uint64_t types)>;
    using BoolResult = std::function<void(bool value)>;
    using ErrorResult = std::function<void(std::optional<RegistrationError> error)>;
    using MappingResult = std::function<void(std::map<std::string, bool> allowedByBundleIdentifier)>;

    struct Observer {
        std::function<void(const std::vector<uint8_t>& token, const std::string& bundleIdentifier)>
            didReceiveDeviceToken;
    };

    // Connects to the bus; it never waits for the daemon.
    explicit KTSNotificationRegistrarClient(ClientOptions options = {});
    ~KTSNotificationRegistrarClient();
    KTSNotificationRegistrarClient(const KTSNotificationRegistrarClient&) = delete;
    KTSNotificationRegistrarClient& operator=(const KTSNotificationRegistrarClient&) = delete;

    // Events arrive only for bundle identifiers observed with
    // setObservingRemoteNotifications, which the client registers again
    // whenever the daemon restarts.
    void setObserver(Observer observer);

    // Completions say the daemon took the request.
    void setObservingRemoteNotifications(
        bool observing, const std::string& bundleIdentifier, Completion completion = {});
    void invalidateTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, Completion completion = {});
    void registerNotificationSettings(
        const ArchivedRecord& settings, const std::string& bundleIdentifier, SettingsResult result);
    void registerBadgeSettingForBundleIdentifier(
        const std::string& bundleIdentifier, Completion completion = {});
    void notificationSettingsForBundleIdentifier(const std::string& bundleIdentifier, SettingsResult result);
    void notificationTypesForBundleIdentifier(const std::string& bundleIdentifier, TypesResult result);
    void allowsRemoteNotificationsForBundleIdentifier(const std::string& bundleIdentifier, BoolResult result);
    void remoteNotificationTypesForBundleIdentifier(const std::string& bundleIdentifier, TypesResult result);
    void registerRemoteNotificationTypes(
        uint64_t types, const std::string& bundleIdentifier, ErrorResult result);
    void requestTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, ErrorResult result);
    void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result);
    void setAllowsBackgroundRefresh(
        bool allowed, const std::string& bundleIdentifier, Completion completion = {});

private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

} // namespace tessel

#endif
