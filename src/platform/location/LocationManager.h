#pragma once

#include <memory>
#include <string>

namespace tessel {

class LocationManager;
class Region;

// Called on the main queue.
class LocationManagerDelegate {
public:
    virtual ~LocationManagerDelegate();
    virtual void locationManagerDidEnterRegion(
        LocationManager& manager, const std::shared_ptr<Region>& region)
        = 0;
    virtual void locationManagerDidExitRegion(LocationManager& manager, const std::shared_ptr<Region>& region)
        = 0;
    virtual void locationManagerDidFailWithError(LocationManager& manager, const std::string& error) = 0;
    virtual void locationManagerDidStartMonitoringForRegion(
        LocationManager& manager, const std::shared_ptr<Region>& region)
        = 0;
};

// Region monitoring on behalf of one component. Used from the main queue only.
class LocationManager {
public:
    // Authorization statuses, as the platform reports them.
    enum AuthorizationStatus : int {
        NotDetermined = 0,
        Restricted = 1,
        Denied = 2,
        AuthorizedAlways = 3,
        AuthorizedWhenInUse = 4,
    };

    virtual ~LocationManager();
    // Held weakly.
    virtual void setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) = 0;
    virtual void startMonitoringForRegion(const std::shared_ptr<Region>& region) = 0;
    virtual void stopMonitoringForRegion(const std::shared_ptr<Region>& region) = 0;
    // Shows the location-in-use indicator.
    virtual void markAsHavingReceivedLocation() = 0;
};

} // namespace tessel
