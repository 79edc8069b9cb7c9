#pragma once

#include "local/KTLocationMonitor.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class ApplicationDataStore;
class KTSNotificationSchedule;
class KTSNotificationScheduleFetchRequest;
class LocalNotification;
class PersistentTimer;
class WorkQueue;

// One application's scheduled local notifications: the persisted list, the
// wake-up timer for the earliest fire date, firing, snoozing and region
// triggers. Confined to the queue it is given; it must also be destroyed there
// (or once the queue is idle), since its timer calls back into it on that queue.
class KTLocalNotificationClient : public KTLocationMonitorDelegate,
                                  public std::enable_shared_from_this<KTLocalNotificationClient> {
public:
    using LocalNotificationList = std::vector<std::shared_ptr<LocalNotification>>;

    static constexpr double defaultSnoozeInterval = 540.0;
    static constexpr const char* snoozeIntervalOverrideKey = "VYLocalNotificationSnoozeIntervalOverride";
    static constexpr const char* timerFiredCachingReason = "localNotificationTimerFired";
    // Limits for applications other than system ones.
    static constexpr size_t maximumNotifications = 64;
    static constexpr size_t maximumRegionNotifications = 20;
    // A notification is due when it fires at most this long after now.
    static constexpr double dueTolerance = 1.0;

    // Creates the client and arms what its persisted list needs. On the queue.
    static std::shared_ptr<KTLocalNotificationClient> create(std::string bundleIdentifier,
        bool isSystemApplication, bool requiresLocalNotifications, bool userNotificationsEnabled,
        std::shared_ptr<WorkQueue> queue);
    KTLocalNotificationClient(std::string bundleIdentifier, bool isSystemApplication,
        bool requiresLocalNotifications, bool userNotificationsEnabled, std::shared_ptr<WorkQueue> queue);
    ~KTLocalNotificationClient() override;
    KTLocalNotificationClient(const KTLocalNotificationClient&) = delete;
    KTLocalNotificationClient& operator=(const KTLocalNotificationClient&) = delete;

    const std::string& bundleIdentifier() const { return _bundleIdentifier; }
    bool isSystemApplication() const { return _isSystemApplication; }
    bool requiresLocalNotifications() const { return _requiresLocalNotifications; }
    bool userNotificationsEnabled() const { return _userNotificationsEnabled; }
    bool isUninstalled() const { return _uninstalled; }
    const std::shared_ptr<WorkQueue>& queue() const { return _queue; }

    void updateLocalNotificationTimersAndRegionRegistrations();
    void invalidateLocalNotificationTimersAndRegionRegistrations();
    void setUserNotificationsEnabled(bool enabled);
    void handleProcessExit();
    void handleUninstall();
    void handleMemoryWarning();
    bool isAppRunning() const;

    LocalNotificationList scheduledLocalNotifications();
    void scheduleLocalNotifications(
        const LocalNotificationList& notifications, bool replaceExistingNotifications);
    void cancelLocalNotifications(const LocalNotificationList& notifications);
    void cancelLocalNotification(const std::shared_ptr<LocalNotification>& notification);
    std::shared_ptr<KTSNotificationSchedule> scheduleForFetchRequest(
        const KTSNotificationScheduleFetchRequest& fetchRequest);
    // None for a snoozed copy the request leaves out.
    std::optional<std::vector<Date>> fireDatesForLocalNotification(
        const LocalNotification& notification, const KTSNotificationScheduleFetchRequest& fetchRequest);
    // The notification a delivered bulletin was made from, by its publisher bulletin identifier.
    std::shared_ptr<LocalNotification> _getLocalNotificationFromBulletin(
        const std::optional<std::string>& publisherBulletinID);

    // Timers and firing.
    void handleSignificantTimeChange();
    void handleLocaleChange();
    void localNotificationTimerFired();
    void _fireNotification(const std::shared_ptr<LocalNotification>& notification);
    std::shared_ptr<LocalNotification> snoozeNotificationForLocalNotification(
        const LocalNotification& notification);
    void scheduleSnoozeNotification(const std::shared_ptr<LocalNotification>& notification);
    void snoozeLocalNotification(const LocalNotification& notification);
    void snoozeLocalNotifications(const LocalNotificationList& notifications);

    // Region monitoring.
    bool appIsAuthorizedForRegionMonitoring();
    void triggerLocationArrow();
    void handleTriggeredRegion(const std::shared_ptr<Region>& region, bool didEnter);
    void locationMonitorDidEnterRegion(
        KTLocationMonitor& monitor, const std::shared_ptr<Region>& region) override;
    void locationMonitorDidExitRegion(
        KTLocationMonitor& monitor, const std::shared_ptr<Region>& region) override;
    const std::shared_ptr<KTLocationMonitor>& locationMonitor() const { return _locationMonitor; }

    // State, for the service and for inspection.
    const PersistentTimer* localNotificationTimer() const { return _localNotificationTimer.get(); }
    bool monitoringLocaleAndTimeChanges() const { return _monitoringLocaleAndTimeChanges; }
    bool hasCachedLocalNotifications() const { return _cachedLocalNotifications.has_value(); }

    // Internal.
    std::optional<LocalNotificationList> _scheduledLocalNotifications();
    void _setScheduledLocalNotifications(const LocalNotificationList& notifications);
    LocalNotificationList _copyUnexpiredScheduledLocalNotifications();
    bool _isLocalNotification(const LocalNotification& notification, Date scheduledToFireAfterDate) const;
    Date _lastLocalNotificationFireDate();
    void _setLastLocalNotificationFireDate(Date date);
    void _beginRequireLocalNotificationsCachingWithReason(const std::string& reason);
    void _endRequireLocalNotificationsCachingWithReason(const std::string& reason);
    void _purgeCachedLocalNotifications();

    bool _canScheduledLocalNotificationTimers() const;
    void _invalidateLocalNotificationTimers();
    void _updateLocalNotificationTimers();

    void _updateLocalNotificationRegionRegistrations();
    void _invalidateLocalNotificationRegionRegistrations();
    void _removeNotificationFromRegionMonitoring(const LocalNotification& notification);
    bool _hasRegionRegistrations() const;

    static Value listValue(const LocalNotificationList& notifications);

private:
    bool _shouldCache() const;
    void _applyLimits(LocalNotificationList& notifications);
    void _postDidChange(const std::optional<LocalNotificationList>& notifications);
    std::optional<Date> _earliestFireDate(
        const LocalNotificationList& notifications, Date lastFireDate) const;

    const std::string _bundleIdentifier;
    std::shared_ptr<ApplicationDataStore> _dataStore;
    const bool _isSystemApplication;
    const bool _requiresLocalNotifications;
    bool _userNotificationsEnabled;
    bool _uninstalled = false;
    const std::shared_ptr<WorkQueue> _queue;
    std::optional<LocalNotificationList> _cachedLocalNotifications;
    // The list a call already holds (just saved, or loaded for several steps), lent
    // to the steps it calls so they do not decode it again; set only during that call.
    const LocalNotificationList* _borrowedLocalNotifications = nullptr;
    std::optional<std::set<std::string>> _requireLocalNotificationsCachingReasons;
    std::unique_ptr<PersistentTimer> _localNotificationTimer;
    bool _monitoringLocaleAndTimeChanges = false;
    std::shared_ptr<KTLocationMonitor> _locationMonitor;
    std::map<std::string, LocalNotificationList> _localNotificationsByMonitoredRegionIdentifier;
};

} // namespace tessel
