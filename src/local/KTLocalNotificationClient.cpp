#include "local/KTLocalNotificationClient.h"

#include "core/KTLogging.h"
#include "platform/Platform.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/PersistentTimer.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/logging/SystemLog.h"
#include "platform/processes/ProcessManager.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"
#include "store/KTNotificationStore.h"
#include "tessel/Tessel.h"

#include <algorithm>

namespace tessel {

namespace {

    const char* yesNo(bool flag) { return flag ? "YES" : "NO"; }

} // namespace

KTLocalNotificationClient::KTLocalNotificationClient(std::string bundleIdentifier, bool isSystemApplication,
    bool requiresLocalNotifications, bool userNotificationsEnabled, std::shared_ptr<WorkQueue> queue)
    : _bundleIdentifier(std::move(bundleIdentifier))
    , _isSystemApplication(isSystemApplication)
    , _requiresLocalNotifications(requiresLocalNotifications)
    , _userNotificationsEnabled(userNotificationsEnabled)
    , _queue(std::move(queue))
{
    KT_ASSERT_ON_QUEUE(*_queue);
    LocalNotification::registerArchivableClasses();
    _dataStore = ApplicationDataStore::storeForApplication(_bundleIdentifier);
}

std::shared_ptr<KTLocalNotificationClient> KTLocalNotificationClient::create(std::string bundleIdentifier,
    bool isSystemApplication, bool requiresLocalNotifications, bool userNotificationsEnabled,
    std::shared_ptr<WorkQueue> queue)
{
    auto client = std::make_shared<KTLocalNotificationClient>(std::move(bundleIdentifier),
        isSystemApplication, requiresLocalNotifications, userNotificationsEnabled, std::move(queue));
    // After construction: region monitoring needs the client's own reference.
    client->updateLocalNotificationTimersAndRegionRegistrations();
    return client;
}

KTLocalNotificationClient::~KTLocalNotificationClient() { _invalidateLocalNotificationTimers(); }

void KTLocalNotificationClient::updateLocalNotificationTimersAndRegionRegistrations()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto scheduled = _borrowedLocalNotifications ? std::nullopt : _scheduledLocalNotifications();
    if (scheduled)
        _borrowedLocalNotifications = &*scheduled;
    _updateLocalNotificationTimers();
    _updateLocalNotificationRegionRegistrations();
    if (scheduled)
        _borrowedLocalNotifications = nullptr;
}

void KTLocalNotificationClient::invalidateLocalNotificationTimersAndRegionRegistrations()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _invalidateLocalNotificationTimers();
    _invalidateLocalNotificationRegionRegistrations();
}

void KTLocalNotificationClient::setUserNotificationsEnabled(bool enabled)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (_userNotificationsEnabled == enabled)
        return;
    _userNotificationsEnabled = enabled;
    updateLocalNotificationTimersAndRegionRegistrations();
}

void KTLocalNotificationClient::handleProcessExit()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _cachedLocalNotifications.reset();
}

void KTLocalNotificationClient::handleUninstall()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _uninstalled = true;
    invalidateLocalNotificationTimersAndRegionRegistrations();
}

void KTLocalNotificationClient::handleMemoryWarning()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _purgeCachedLocalNotifications();
}

void KTLocalNotificationClient::_purgeCachedLocalNotifications()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!_requireLocalNotificationsCachingReasons)
        _cachedLocalNotifications.reset();
}

bool KTLocalNotificationClient::isAppRunning() const
{
    auto& manager = Platform::current().processManager;
    return manager && !manager->processesForBundleIdentifier(_bundleIdentifier).empty();
}

bool KTLocalNotificationClient::_shouldCache() const
{
    return isAppRunning() || _requireLocalNotificationsCachingReasons.has_value();
}

Value KTLocalNotificationClient::listValue(const LocalNotificationList& notifications)
{
    Value::Array array;
    array.reserve(notifications.size());
    for (auto& notification : notifications)
        array.emplace_back(notification);
    return Value(std::move(array));
}

std::optional<KTLocalNotificationClient::LocalNotificationList>
KTLocalNotificationClient::_scheduledLocalNotifications()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (_cachedLocalNotifications)
        return _cachedLocalNotifications;
    if (_borrowedLocalNotifications)
        return *_borrowedLocalNotifications;
    std::optional<LocalNotificationList> loaded;
    if (_dataStore) {
        // Foreign or broken elements read as null and are left out below.
        UnarchiveOptions options { .unknownClassesDecodeAsNull = true };
        Value stored = _dataStore->archivedObjectForKey(
            KTApplicationDataStoreLocalNotificationsKey, options, Value::Type::Array);
        if (stored.isArray()) {
            loaded.emplace();
            for (auto& element : stored.arrayValue()) {
                if (auto notification = element.objectAs<LocalNotification>())
                    loaded->push_back(std::move(notification));
            }
        }
    }
    bool shouldCache = _shouldCache();
    KT_LOCAL_LOG(_bundleIdentifier, "Load local notifications: should cache=%@ notifications=%@",
        yesNo(shouldCache), loaded ? listValue(*loaded) : Value());
    if (shouldCache)
        _cachedLocalNotifications = loaded;
    return loaded;
}

void KTLocalNotificationClient::_setScheduledLocalNotifications(const LocalNotificationList& notifications)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    // Only registered regions need the old list.
    if (auto current = _hasRegionRegistrations() ? _scheduledLocalNotifications() : std::nullopt) {
        for (auto& old : *current) {
            bool kept = std::any_of(notifications.begin(), notifications.end(),
                [&](auto& notification) { return notification->isEqual(*old); });
            if (old->isTriggeredByRegion() && !kept)
                _removeNotificationFromRegionMonitoring(*old);
        }
    }
    _cachedLocalNotifications.reset();
    bool shouldCache = _shouldCache();
    if (shouldCache)
        _cachedLocalNotifications = notifications;
    Value list = listValue(notifications);
    bool saved
        = _dataStore && _dataStore->setArchivedObject(list, KTApplicationDataStoreLocalNotificationsKey);
    if (!saved)
        KT_LOCAL_LOG(_bundleIdentifier, "Failed to save local notifications to application data store");
    KT_LOCAL_LOG(_bundleIdentifier,
        "Save local notifications to application data store: should cache=%@ notifications=%@",
        yesNo(shouldCache), list);
    // Arming reads back what was just written; it gets the list instead of decoding it again.
    if (saved)
        _borrowedLocalNotifications = &notifications;
    _updateLocalNotificationTimers();
    _updateLocalNotificationRegionRegistrations();
    _borrowedLocalNotifications = nullptr;
}

void KTLocalNotificationClient::_beginRequireLocalNotificationsCachingWithReason(const std::string& reason)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!_requireLocalNotificationsCachingReasons)
        _requireLocalNotificationsCachingReasons.emplace();
    auto& reasons = *_requireLocalNotificationsCachingReasons;
    if (reasons.contains(reason)) {
        KT_LOCAL_LOG(_bundleIdentifier,
            "Attempt to begin require local notification caching with already present reason '%@': %@",
            reason, Value(Value::Array(reasons.begin(), reasons.end())));
        return;
    }
    reasons.insert(reason);
}

void KTLocalNotificationClient::_endRequireLocalNotificationsCachingWithReason(const std::string& reason)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto& reasons = _requireLocalNotificationsCachingReasons;
    if (reasons && reasons->contains(reason)) {
        reasons->erase(reason);
    } else {
        KT_LOCAL_LOG(_bundleIdentifier,
            "Attempt to end require local notification caching with not present reason '%@': %@", reason,
            reasons ? Value(Value::Array(reasons->begin(), reasons->end())) : Value());
    }
    if (reasons && reasons->empty()) {
        reasons.reset();
        if (!isAppRunning())
            _cachedLocalNotifications.reset();
    }
}

Date KTLocalNotificationClient::_lastLocalNotificationFireDate()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    Value stored = _dataStore
        ? _dataStore->objectForKey(KTApplicationDataStoreLocalNotificationsLastFireDateKey)
        : Value();
    Date last = Date::distantPast();
    if (stored.isNumber() && !stored.isBoolean())
        last = Date(stored.doubleValue());
    else if (stored.isDate())
        last = stored.dateValue();
    Date now = Platform::current().clock->now();
    // A clock set back must not hold every notification until it catches up.
    if (last.timeIntervalSinceDate(now) > 1.0) {
        _setLastLocalNotificationFireDate(now);
        return now;
    }
    return last;
}

void KTLocalNotificationClient::_setLastLocalNotificationFireDate(Date date)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!_dataStore
        || !_dataStore->setObject(Value(date.timeIntervalSinceReferenceDate()),
            KTApplicationDataStoreLocalNotificationsLastFireDateKey))
        KT_LOCAL_LOG(_bundleIdentifier, "Failed to save last fire date %@", date);
}

bool KTLocalNotificationClient::_isLocalNotification(
    const LocalNotification& notification, Date scheduledToFireAfterDate) const
{
    auto remaining = notification.remainingRepeatCount();
    bool repeatsLeft = remaining == LocalNotificationInfiniteRepeatCount || remaining > 0;
    if (notification.isTriggeredByRegion() || notification.repeatInterval() != CalendarUnit::None)
        return repeatsLeft;
    auto& fireDate = notification.fireDate();
    return fireDate && scheduledToFireAfterDate.timeIntervalSinceDate(*fireDate) < 0;
}

KTLocalNotificationClient::LocalNotificationList
KTLocalNotificationClient::_copyUnexpiredScheduledLocalNotifications()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    LocalNotificationList unexpired;
    auto scheduled = _scheduledLocalNotifications();
    if (!scheduled)
        return unexpired;
    Date lastFireDate = _lastLocalNotificationFireDate();
    for (auto& notification : *scheduled) {
        if (notification && _isLocalNotification(*notification, lastFireDate))
            unexpired.push_back(notification);
    }
    return unexpired;
}

KTLocalNotificationClient::LocalNotificationList KTLocalNotificationClient::scheduledLocalNotifications()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _copyUnexpiredScheduledLocalNotifications();
}

void KTLocalNotificationClient::scheduleLocalNotifications(
    const LocalNotificationList& notifications, bool replaceExistingNotifications)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    KT_LOCAL_LOG(_bundleIdentifier, "Schedule local notifications: replacing existing=%@ notifications=%@",
        yesNo(replaceExistingNotifications), listValue(notifications));
    LocalNotificationList incoming;
    for (auto& notification : notifications) {
        if (notification)
            incoming.push_back(notification);
    }
    for (auto& notification : incoming) {
        if (!_isSystemApplication)
            notification->clearNonSystemProperties();
        if (auto& region = notification->region())
            region->setOnBehalfOfBundleId(_bundleIdentifier);
    }
    Date now = Platform::current().clock->now();
    LocalNotificationList working;
    if (replaceExistingNotifications) {
        KTNotificationStore::sharedInstance()->removeAllLocalNotificationsForBundleID(_bundleIdentifier);
        working = incoming;
    } else {
        if (incoming.size() == 1) {
            auto& only = incoming.front();
            auto& fireDate = only->fireDate();
            bool due = !fireDate
                || (fireDate->timeIntervalSinceDate(now) <= 0
                    && only->repeatInterval() == CalendarUnit::None);
            if (only->isTriggeredByDate() && due) {
                _setLastLocalNotificationFireDate(now.addingTimeInterval(-1.0));
                _fireNotification(only);
                return;
            }
        }
        working = _copyUnexpiredScheduledLocalNotifications();
        for (auto& notification : incoming) {
            std::erase_if(working, [&](auto& existing) { return existing->isEqual(*notification); });
            working.push_back(notification);
        }
    }
    std::stable_sort(working.begin(), working.end(),
        [](auto& a, auto& b) { return a->compareFireDates(*b) == std::weak_ordering::less; });
    if (!_isSystemApplication)
        _applyLimits(working);
    _setLastLocalNotificationFireDate(now.addingTimeInterval(-1.0));
    _setScheduledLocalNotifications(working);
}

void KTLocalNotificationClient::_applyLimits(LocalNotificationList& notifications)
{
    auto firstDated = std::find_if(
        notifications.begin(), notifications.end(), [](auto& n) { return !n->isTriggeredByRegion(); });
    size_t regionCount = static_cast<size_t>(firstDated - notifications.begin());
    if (regionCount > maximumRegionNotifications) {
        auto surplusBegin = notifications.begin() + maximumRegionNotifications;
        for (auto it = surplusBegin; it != firstDated; ++it)
            _removeNotificationFromRegionMonitoring(**it);
        notifications.erase(surplusBegin, firstDated);
    }
    if (notifications.size() > maximumNotifications)
        notifications.resize(maximumNotifications);
}

void KTLocalNotificationClient::cancelLocalNotifications(const LocalNotificationList& notifications)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    for (auto& notification : notifications) {
        if (notification)
            cancelLocalNotification(notification);
    }
}

void KTLocalNotificationClient::cancelLocalNotification(
    const std::shared_ptr<LocalNotification>& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    KT_LOCAL_LOG(_bundleIdentifier, "Cancel local notifications: %@", Value(notification));
    KTNotificationStore::sharedInstance()->removeLocalNotification(notification, _bundleIdentifier);
    auto unexpired = _copyUnexpiredScheduledLocalNotifications();
    std::erase_if(unexpired, [&](auto& existing) { return existing->isEqual(*notification); });
    _setScheduledLocalNotifications(unexpired);
}

std::shared_ptr<KTSNotificationSchedule> KTLocalNotificationClient::scheduleForFetchRequest(
    const KTSNotificationScheduleFetchRequest& fetchRequest)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto schedule = std::make_shared<KTSNotificationSchedule>();
    for (auto& notification : _copyUnexpiredScheduledLocalNotifications()) {
        auto fireDates = fireDatesForLocalNotification(*notification, fetchRequest);
        if (!fireDates)
            continue;
        for (Date fireDate : *fireDates)
            schedule->addLocalNotification(notification, fireDate);
    }
    return schedule;
}

std::optional<std::vector<Date>> KTLocalNotificationClient::fireDatesForLocalNotification(
    const LocalNotification& notification, const KTSNotificationScheduleFetchRequest& fetchRequest)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!fetchRequest.includeSnoozes() && notification.isFromSnooze())
        return std::nullopt;
    auto& start = fetchRequest.startDate();
    auto& end = fetchRequest.endDate();
    Date base = notification.totalRepeatCount() == LocalNotificationInfiniteRepeatCount
        ? start.value_or(Platform::current().clock->now())
        : _lastLocalNotificationFireDate();
    // Without a size or an end, a notification repeating without end never
    // stops: callers give one (the bus transport always does).
    uint64_t limit = fetchRequest.maxSize();
    std::vector<Date> dates;
    for (auto date = notification.nextFireDateAfterDate(base, std::nullopt); date;
         date = notification.nextFireDateAfterDate(*date, std::nullopt)) {
        if ((start && *date < *start) || (end && !(*date < *end)))
            break;
        if (limit && dates.size() >= limit)
            break;
        dates.push_back(*date);
    }
    return dates;
}

std::shared_ptr<LocalNotification> KTLocalNotificationClient::_getLocalNotificationFromBulletin(
    const std::optional<std::string>& publisherBulletinID)
{
    if (!publisherBulletinID)
        return nullptr;
    auto data = KTNotificationStore::sharedInstance()->savedNotificationDataForBundleID(_bundleIdentifier);
    if (!data)
        return nullptr;
    std::string error;
    auto records = KeyedArchive::unarchive(*data, &error);
    if (!records) {
        Platform::current().systemLog->log(LogPriority::Error,
            format("%s Caught exception while unarchiving notification data for \"%@\": %@",
                "-[KTLocalNotificationClient _getLocalNotificationFromBulletin:]", _bundleIdentifier, error));
        return nullptr;
    }
    if (!records->isArray())
        return nullptr;
    for (auto& record : records->arrayValue()) {
        if (!record.isDictionary())
            continue;
        if (KTNotificationStore::uniqueIdentifierForNotification(record) != publisherBulletinID)
            continue;
        const Value& details = record[KTNotificationStoreLocalNotificationDataKey];
        return details.isData() ? KTSLocalNotificationWhitelistedUnarchiveFromData(details.dataValue())
                                : nullptr;
    }
    return nullptr;
}

} // namespace tessel
