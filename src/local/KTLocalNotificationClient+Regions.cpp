#include "local/KTLocalNotificationClient.h"

#include "core/KTLogging.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/location/Region.h"
#include "platform/records/LocalNotification.h"

#include <algorithm>

namespace tessel {

namespace {

    bool containsEqual(
        const KTLocalNotificationClient::LocalNotificationList& list, const LocalNotification& n)
    {
        return std::any_of(list.begin(), list.end(), [&](auto& element) { return element->isEqual(n); });
    }

} // namespace

bool KTLocalNotificationClient::_hasRegionRegistrations() const
{
    return !_localNotificationsByMonitoredRegionIdentifier.empty();
}

void KTLocalNotificationClient::_updateLocalNotificationRegionRegistrations()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    LocalNotificationList regional;
    if (auto scheduled = _scheduledLocalNotifications()) {
        std::copy_if(scheduled->begin(), scheduled->end(), std::back_inserter(regional),
            [](auto& n) { return n->isTriggeredByRegion(); });
    }
    if (regional.empty())
        return;
    if (!_locationMonitor) {
        _locationMonitor = KTLocationMonitor::create(_bundleIdentifier);
        _locationMonitor->setDelegate(weak_from_this());
    }
    for (auto& notification : regional) {
        auto& region = notification->region();
        auto [entry, created]
            = _localNotificationsByMonitoredRegionIdentifier.try_emplace(region->identifier());
        if (!containsEqual(entry->second, *notification))
            entry->second.push_back(notification);
        if (created)
            _locationMonitor->startMonitoringForRegion(region);
    }
}

void KTLocalNotificationClient::_removeNotificationFromRegionMonitoring(const LocalNotification& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto& region = notification.region();
    if (!region)
        return;
    auto entry = _localNotificationsByMonitoredRegionIdentifier.find(region->identifier());
    if (entry == _localNotificationsByMonitoredRegionIdentifier.end())
        return;
    std::erase_if(entry->second, [&](auto& n) { return n->isEqual(notification); });
    if (!entry->second.empty())
        return;
    _localNotificationsByMonitoredRegionIdentifier.erase(entry);
    if (_locationMonitor)
        _locationMonitor->stopMonitoringForRegion(region);
}

void KTLocalNotificationClient::_invalidateLocalNotificationRegionRegistrations()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto scheduled = _scheduledLocalNotifications();
    if (!scheduled)
        return;
    for (auto& notification : *scheduled) {
        if (notification->isTriggeredByRegion())
            _removeNotificationFromRegionMonitoring(*notification);
    }
}

void KTLocalNotificationClient::handleTriggeredRegion(const std::shared_ptr<Region>& region, bool didEnter)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!appIsAuthorizedForRegionMonitoring()) {
        KT_LOCAL_LOG(_bundleIdentifier,
            "suppressed triggered region (%@) callback as %@ is not authorized for notifications.",
            Value(region), _bundleIdentifier);
        return;
    }
    auto entry = _localNotificationsByMonitoredRegionIdentifier.find(region->identifier());
    // Copies: firing may change the registrations being walked.
    LocalNotificationList triggered;
    if (entry != _localNotificationsByMonitoredRegionIdentifier.end())
        triggered = entry->second;
    LocalNotificationList retired;
    LocalNotificationList retiredAsScheduled;
    if (triggered.empty()) {
        KT_LOCAL_LOG(_bundleIdentifier,
            "received %@ for %@ region %@ which isn't associated with a notification",
            "handleTriggeredRegion:didEnter:", didEnter ? "entered" : "left", Value(region));
    }
    for (auto& notification : triggered) {
        if (notification->regionTriggersOnce()) {
            retiredAsScheduled.push_back(notification->copy());
            notification->setRemainingRepeatCount(0);
            retired.push_back(notification);
        }
        _fireNotification(notification);
    }
    for (auto& notification : retired)
        _removeNotificationFromRegionMonitoring(*notification);
    // The list may hold other copies of a retired notification than the one that
    // fired; they go by their state before firing.
    auto unexpired = _copyUnexpiredScheduledLocalNotifications();
    std::erase_if(unexpired, [&](auto& n) { return containsEqual(retiredAsScheduled, *n); });
    _setScheduledLocalNotifications(unexpired);
}

void KTLocalNotificationClient::locationMonitorDidEnterRegion(
    KTLocationMonitor&, const std::shared_ptr<Region>& region)
{
    auto self = shared_from_this();
    _queue->async([self, region] { self->handleTriggeredRegion(region, true); });
}

void KTLocalNotificationClient::locationMonitorDidExitRegion(
    KTLocationMonitor&, const std::shared_ptr<Region>& region)
{
    auto self = shared_from_this();
    _queue->async([self, region] { self->handleTriggeredRegion(region, false); });
}

bool KTLocalNotificationClient::appIsAuthorizedForRegionMonitoring()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return KTLocationMonitor::isBundleIdentifierAuthorizedForRegionMonitoring(_bundleIdentifier);
}

void KTLocalNotificationClient::triggerLocationArrow()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (_locationMonitor)
        _locationMonitor->markAsHavingReceivedLocation();
}

} // namespace tessel
