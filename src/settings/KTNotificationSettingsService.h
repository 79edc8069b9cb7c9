#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace tessel {

class KTNotificationAuthorizationAlertController;
class NotificationSettings;
class WorkQueue;

// The entry point for an application's notification settings: what it asked
// for, what the user allows, and whether it was ever authorized. The user is
// asked once per application, the first time it registers; the outcome is kept
// in the application's section settings through the data provider factory.
//
// Asynchronous operations post to the service's queue and answer later, on
// the factory's queue. A request for an application that keeps its own data
// provider ends without an answer.
class KTNotificationSettingsService : public std::enable_shared_from_this<KTNotificationSettingsService> {
public:
    using SettingsResult = std::function<void(std::shared_ptr<NotificationSettings> settings)>;

    static constexpr const char* queueLabel = "com.tamber.KTNotificationSettingsService";

    static std::shared_ptr<KTNotificationSettingsService> sharedInstance();

    KTNotificationSettingsService();
    KTNotificationSettingsService(const KTNotificationSettingsService&) = delete;
    KTNotificationSettingsService& operator=(const KTNotificationSettingsService&) = delete;

    // The types in effect for the application.
    void notificationTypesForBundleIdentifier(
        const std::string& bundleIdentifier, std::function<void(uint64_t types)> result);
    // The types in effect and the stored categories.
    void notificationSettingsForBundleIdentifier(const std::string& bundleIdentifier, SettingsResult result);
    // The given applications whose notifications reach the user.
    void bundleIdentifiersWithEnabledNotifications(
        const std::set<std::string>& bundleIdentifiers, std::function<void(std::set<std::string>)> result);
    void registerNotificationSettings(std::shared_ptr<NotificationSettings> settings,
        const std::string& bundleIdentifier, SettingsResult result);
    // An application refused by the user is recorded as supporting badges only.
    void registerNotificationTypes(uint64_t types, const std::string& bundleIdentifier);

    // Blocking forms, for callers on other queues: calling them from the
    // service's or the factory's queue would wait forever, so it aborts.
    uint64_t notificationTypesForBundleIdentifier(const std::string& bundleIdentifier);
    std::set<std::string> bundleIdentifiersWithEnabledNotifications(
        const std::set<std::string>& bundleIdentifiers);

    const std::shared_ptr<WorkQueue>& queue() const { return _queue; }

private:
    // Continues on the service's queue with whether the factory has a provider
    // for the application, and if not, with the user's answer (1 allowed).
    void _queue_withAuthorizationForBundleIdentifier(
        const std::string& bundleIdentifier, std::function<void(bool registered, int64_t answer)> next);
    void _assertMayWait() const;

    std::shared_ptr<WorkQueue> _queue;
    std::shared_ptr<KTNotificationAuthorizationAlertController> _authorizationAlertController;
};

} // namespace tessel
