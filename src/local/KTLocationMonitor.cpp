#include "local/KTLocationMonitor.h"

#include "core/KTLogging.h"
#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/location/LocationServices.h"
#include "platform/location/Region.h"

namespace tessel {

KTLocationMonitorDelegate::~KTLocationMonitorDelegate() = default;

bool KTLocationMonitor::isBundleIdentifierAuthorizedForRegionMonitoring(const std::string& bundleIdentifier)
{
    auto& services = Platform::current().locationServices;
    if (!services)
        return false;
    auto status = services->authorizationStatusForBundleIdentifier(bundleIdentifier);
    return status == LocationManager::AuthorizedAlways || status == LocationManager::AuthorizedWhenInUse;
}

KTLocationMonitor::KTLocationMonitor(std::string bundleIdentifier)
    : _bundleIdentifier(std::move(bundleIdentifier))
    , _queue(WorkQueue::main().shared_from_this())
{
}

std::shared_ptr<KTLocationMonitor> KTLocationMonitor::create(std::string bundleIdentifier)
{
    std::shared_ptr<KTLocationMonitor> monitor(new KTLocationMonitor(std::move(bundleIdentifier)));
    std::weak_ptr<KTLocationMonitor> weakMonitor = monitor;
    monitor->_queue->async([weakMonitor] {
        auto self = weakMonitor.lock();
        auto& services = Platform::current().locationServices;
        if (!self || !services)
            return;
        self->_locationManager
            = services->makeLocationManager(Platform::current().bulletinServiceBundleIdentifier);
        self->_locationManager->setDelegate(self);
    });
    return monitor;
}

KTLocationMonitor::~KTLocationMonitor()
{
    if (_locationManager)
        _locationManager->setDelegate({});
}

void KTLocationMonitor::withManager(std::function<void(LocationManager&)> work)
{
    auto self = shared_from_this();
    _queue->async([self, work = std::move(work)] {
        if (self->_locationManager)
            work(*self->_locationManager);
    });
}

void KTLocationMonitor::startMonitoringForRegion(const std::shared_ptr<Region>& region)
{
    withManager([region](LocationManager& manager) { manager.startMonitoringForRegion(region); });
}

void KTLocationMonitor::stopMonitoringForRegion(const std::shared_ptr<Region>& region)
{
    withManager([region](LocationManager& manager) { manager.stopMonitoringForRegion(region); });
}

void KTLocationMonitor::markAsHavingReceivedLocation()
{
    withManager([](LocationManager& manager) { manager.markAsHavingReceivedLocation(); });
}

void KTLocationMonitor::locationManagerDidEnterRegion(LocationManager&, const std::shared_ptr<Region>& region)
{
    auto self = shared_from_this();
    _queue->async([self, region] { self->_queue_didEnterRegion(region); });
}

void KTLocationMonitor::locationManagerDidExitRegion(LocationManager&, const std::shared_ptr<Region>& region)
{
    auto self = shared_from_this();
    _queue->async([self, region] { self->_queue_didExitRegion(region); });
}

void KTLocationMonitor::locationManagerDidFailWithError(LocationManager&, const std::string& error)
{
    if (ktLocalLoggingEnabled())
        ktLocalLogLine(format("LocationManager failed with error %@ for %@", error, _bundleIdentifier));
}

void KTLocationMonitor::locationManagerDidStartMonitoringForRegion(
    LocationManager&, const std::shared_ptr<Region>& region)
{
    if (ktLocalLoggingEnabled())
        ktLocalLogLine(
            format("LocationManager started monitoring region %@ for %@", Value(region), _bundleIdentifier));
}

bool KTLocationMonitor::isForThisApplication(const std::shared_ptr<Region>& region) const
{
    return region && region->onBehalfOfBundleId() == _bundleIdentifier;
}

void KTLocationMonitor::_queue_didEnterRegion(const std::shared_ptr<Region>& region)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!isForThisApplication(region))
        return;
    if (auto delegate = _delegate.lock())
        delegate->locationMonitorDidEnterRegion(*this, region);
}

void KTLocationMonitor::_queue_didExitRegion(const std::shared_ptr<Region>& region)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (!isForThisApplication(region))
        return;
    if (auto delegate = _delegate.lock())
        delegate->locationMonitorDidExitRegion(*this, region);
}

} // namespace tessel
