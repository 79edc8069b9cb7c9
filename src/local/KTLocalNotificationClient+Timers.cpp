#include "local/KTLocalNotificationClient.h"

#include "core/KTLogging.h"
#include "platform/Platform.h"
#include "platform/concurrency/PersistentTimer.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/events/SystemNotificationCenter.h"
#include "platform/files/Preferences.h"
#include "platform/processes/HandleLocalNotificationAction.h"
#include "platform/processes/ProcessManager.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSPowerLog.h"
#include "store/KTNotificationStore.h"
#include "tessel/Tessel.h"

namespace tessel {

bool KTLocalNotificationClient::_canScheduledLocalNotificationTimers() const
{
    return !_uninstalled && (_userNotificationsEnabled || _requiresLocalNotifications);
}

void KTLocalNotificationClient::_invalidateLocalNotificationTimers()
{
    if (_localNotificationTimer) {
        _localNotificationTimer->invalidate();
        _localNotificationTimer.reset();
    }
}

std::optional<Date> KTLocalNotificationClient::_earliestFireDate(
    const LocalNotificationList& notifications, Date lastFireDate) const
{
    std::optional<Date> earliest;
    for (auto& notification : notifications) {
        if (!notification->isTriggeredByDate())
            continue;
        auto next = notification->nextFireDateForLastFireDate(lastFireDate);
        if (next && (!earliest || *next < *earliest))
            earliest = next;
    }
    return earliest;
}

void KTLocalNotificationClient::_updateLocalNotificationTimers()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _invalidateLocalNotificationTimers();
    if (!_canScheduledLocalNotificationTimers()) {
        KT_LOCAL_LOG(_bundleIdentifier,
            "Not scheduling local notifications (user notifications: %d, requires local notifications: %d, "
            "uninstalled: %d, ",
            _userNotificationsEnabled, _requiresLocalNotifications, _uninstalled);
        return;
    }
    Date lastFireDate = _lastLocalNotificationFireDate();
    auto scheduled = _scheduledLocalNotifications();
    auto earliest = scheduled ? _earliestFireDate(*scheduled, lastFireDate) : std::nullopt;
    if (earliest) {
        KT_LOCAL_LOG(_bundleIdentifier, "Arming timer for next local notification at fire date: fire date=%@",
            *earliest);
        // Confined to the queue like the client, which outlives its timer.
        _localNotificationTimer = std::make_unique<PersistentTimer>(
            *earliest, _bundleIdentifier, [this] { localNotificationTimerFired(); });
        _localNotificationTimer->setMinimumEarlyFireProportion(1.0);
        _localNotificationTimer->setUserVisible(true);
        _localNotificationTimer->scheduleInQueue(_queue);
        _monitoringLocaleAndTimeChanges = true;
    } else {
        KT_LOCAL_LOG(_bundleIdentifier, "No upcoming local notifications");
        _monitoringLocaleAndTimeChanges = false;
    }
    _postDidChange(scheduled);
}

void KTLocalNotificationClient::_postDidChange(const std::optional<LocalNotificationList>& notifications)
{
    Value::Dictionary userInfo { { KTBundleIdentifierKey, _bundleIdentifier } };
    if (notifications)
        userInfo[KTLocalNotificationsKey] = listValue(*notifications);
    Platform::current().notificationCenter->postNotification(
        KTLocalNotificationsDidChangeNotification, nullptr, Value(std::move(userInfo)));
}

void KTLocalNotificationClient::handleSignificantTimeChange()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (_monitoringLocaleAndTimeChanges)
        _updateLocalNotificationTimers();
}

void KTLocalNotificationClient::handleLocaleChange()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (_monitoringLocaleAndTimeChanges)
        _updateLocalNotificationTimers();
}

void KTLocalNotificationClient::localNotificationTimerFired()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!_canScheduledLocalNotificationTimers())
        return;
    KT_LOCAL_LOG(_bundleIdentifier, "Steadfast timer fired: timer=%@",
        _localNotificationTimer ? _localNotificationTimer->description() : std::string("(null)"));
    _beginRequireLocalNotificationsCachingWithReason(timerFiredCachingReason);
    _invalidateLocalNotificationTimers();
    Date lastFireDate = _lastLocalNotificationFireDate();
    Date now = Platform::current().clock->now();
    Date latestFired = lastFireDate;
    auto scheduled = _scheduledLocalNotifications().value_or(LocalNotificationList {});
    for (auto& notification : scheduled) {
        auto fireDate = notification->nextFireDateForLastFireDate(lastFireDate);
        if (!fireDate || fireDate->timeIntervalSinceDate(now) > dueTolerance
            || !notification->isTriggeredByDate()) {
            KT_LOCAL_LOG(_bundleIdentifier,
                "Not firing non-due notification: application last fire date=%@ notification=%@",
                lastFireDate, Value(notification));
            continue;
        }
        auto remaining = notification->remainingRepeatCount();
        if (notification->repeatInterval() != CalendarUnit::None && remaining > 0)
            notification->setRemainingRepeatCount(remaining - 1);
        _fireNotification(notification);
        if (*fireDate > latestFired)
            latestFired = *fireDate;
    }
    _setLastLocalNotificationFireDate(latestFired);
    _setScheduledLocalNotifications(_copyUnexpiredScheduledLocalNotifications());
    _endRequireLocalNotificationsCachingWithReason(timerFiredCachingReason);
}

void KTLocalNotificationClient::_fireNotification(const std::shared_ptr<LocalNotification>& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    KT_LOCAL_LOG(_bundleIdentifier, "Fire local notification: notification=%@", Value(notification));
    std::shared_ptr<ApplicationProcess> process;
    if (auto& manager = Platform::current().processManager) {
        auto processes = manager->processesForBundleIdentifier(_bundleIdentifier);
        if (!processes.empty())
            process = processes.back();
    }
    auto visibility = process ? process->state().visibility : ProcessVisibility::Unknown;
    _KTPostLocalNotificationFiredPowerNotification(process ? process->pid() : 0, _bundleIdentifier);
    if (visibility == ProcessVisibility::Foreground) {
        auto action = std::make_shared<HandleLocalNotificationAction>(notification);
        if (notification->isTriggeredByRegion() && appIsAuthorizedForRegionMonitoring())
            triggerLocationArrow();
        process->workspace().sendActions({ action });
    }
    if (!notification->isTransient()) {
        KT_LOCAL_LOG(
            _bundleIdentifier, "Save local notification to push store: notification=%@", Value(notification));
        KTNotificationStore::sharedInstance()->saveLocalNotification(notification, _bundleIdentifier);
    }
    Platform::current().notificationCenter->postNotification(KTLocalNotificationDidFireNotification, this,
        Value(Value::Dictionary { { KTLocalNotificationsKey, listValue({ notification }) },
            { KTBundleIdentifierKey, _bundleIdentifier } }));
    if (auto& name = notification->firedNotificationName(); !name.empty()) {
        KT_LOCAL_LOG(_bundleIdentifier,
            "Post oakum notification: oakum notification=%@ local notification=%@", name,
            Value(notification));
        Platform::current().systemNotificationCenter->postNotification(name);
    }
}

std::shared_ptr<LocalNotification> KTLocalNotificationClient::snoozeNotificationForLocalNotification(
    const LocalNotification& notification)
{
    auto& platform = Platform::current();
    int64_t override
        = platform.preferences->integerForKey(snoozeIntervalOverrideKey, platform.hostPreferencesDomain);
    double interval = override ? static_cast<double>(override) : defaultSnoozeInterval;
    auto snoozed = notification.copy();
    snoozed->setFireDate(platform.clock->now().addingTimeInterval(interval));
    snoozed->setTimeZone(std::nullopt);
    snoozed->setRepeatInterval(CalendarUnit::None);
    snoozed->setFromSnooze(true);
    return snoozed;
}

void KTLocalNotificationClient::scheduleSnoozeNotification(
    const std::shared_ptr<LocalNotification>& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    scheduleLocalNotifications({ notification }, false);
    if (auto& name = notification->snoozedNotificationName(); !name.empty())
        Platform::current().systemNotificationCenter->postNotification(name);
}

void KTLocalNotificationClient::snoozeLocalNotification(const LocalNotification& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    scheduleSnoozeNotification(snoozeNotificationForLocalNotification(notification));
}

void KTLocalNotificationClient::snoozeLocalNotifications(const LocalNotificationList& notifications)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    for (auto& notification : notifications) {
        if (notification)
            snoozeLocalNotification(*notification);
    }
}

} // namespace tessel
