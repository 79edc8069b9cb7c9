#pragma once

#include "platform/location/LocationManager.h"

#include <functional>
#include <memory>
#include <string>

namespace tessel {

class KTLocationMonitor;
class WorkQueue;

// Hears of crossings on the monitor's queue (the main queue).
class KTLocationMonitorDelegate {
public:
    virtual ~KTLocationMonitorDelegate();
    virtual void locationMonitorDidEnterRegion(
        KTLocationMonitor& monitor, const std::shared_ptr<Region>& region)
        = 0;
    virtual void locationMonitorDidExitRegion(
        KTLocationMonitor& monitor, const std::shared_ptr<Region>& region)
        = 0;
};

// One application's region monitoring, in front of a platform location manager
// attributed to the bulletin service. Every manager call runs on the main queue.
class KTLocationMonitor : public LocationManagerDelegate,
                          public std::enable_shared_from_this<KTLocationMonitor> {
public:
    static bool isBundleIdentifierAuthorizedForRegionMonitoring(const std::string& bundleIdentifier);

    // The manager is made asynchronously on the main queue.
    static std::shared_ptr<KTLocationMonitor> create(std::string bundleIdentifier);
    ~KTLocationMonitor() override;

    const std::string& bundleIdentifier() const { return _bundleIdentifier; }
    std::shared_ptr<KTLocationMonitorDelegate> delegate() const { return _delegate.lock(); }
    // Not retained.
    void setDelegate(std::weak_ptr<KTLocationMonitorDelegate> delegate) { _delegate = std::move(delegate); }

    void startMonitoringForRegion(const std::shared_ptr<Region>& region);
    void stopMonitoringForRegion(const std::shared_ptr<Region>& region);
    void markAsHavingReceivedLocation();

    void locationManagerDidEnterRegion(
        LocationManager& manager, const std::shared_ptr<Region>& region) override;
    void locationManagerDidExitRegion(
        LocationManager& manager, const std::shared_ptr<Region>& region) override;
    void locationManagerDidFailWithError(LocationManager& manager, const std::string& error) override;
    void locationManagerDidStartMonitoringForRegion(
        LocationManager& manager, const std::shared_ptr<Region>& region) override;

    void _queue_didEnterRegion(const std::shared_ptr<Region>& region);
    void _queue_didExitRegion(const std::shared_ptr<Region>& region);

private:
    explicit KTLocationMonitor(std::string bundleIdentifier);
    // Runs work on the queue with the manager, keeping the monitor alive.
    void withManager(std::function<void(LocationManager&)> work);
    bool isForThisApplication(const std::shared_ptr<Region>& region) const;

    const std::string _bundleIdentifier;
    const std::shared_ptr<WorkQueue> _queue;
    std::shared_ptr<LocationManager> _locationManager;
    std::weak_ptr<KTLocationMonitorDelegate> _delegate;
};

} // namespace tessel
