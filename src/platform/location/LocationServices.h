#pragma once

#include "platform/location/LocationManager.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

class Region;

// The device's region monitoring, fed by the host: there is no positioning
// service behind it, the host (or a test) reports crossings and decides each
// application's authorization. Managers deliver to their delegates on the
// main queue. Thread-safe.
class LocationServices : public std::enable_shared_from_this<LocationServices> {
public:
    // effectiveBundleIdentifier: whom monitoring is attributed to.
    std::shared_ptr<LocationManager> makeLocationManager(const std::string& effectiveBundleIdentifier);

    LocationManager::AuthorizationStatus authorizationStatusForBundleIdentifier(
        const std::string& bundleIdentifier);
    void setAuthorizationStatus(
        const std::string& bundleIdentifier, LocationManager::AuthorizationStatus status);

    // Every manager monitoring a region with this identifier hears of the
    // crossing, with the region it monitors.
    void reportCrossing(const std::string& regionIdentifier, bool entered);
    // Hands this exact region to every manager, monitored or not, as a
    // platform that mixes up its clients would.
    void deliverCrossing(const std::shared_ptr<Region>& region, bool entered);
    // The next start fails with this error instead of starting.
    void failNextStart(std::string error);

    // Identifiers monitored by any manager, sorted, one entry per manager monitoring it.
    std::vector<std::string> monitoredRegionIdentifiers();
    int locationIndicatorCount();

private:
    class Manager;
    std::vector<std::shared_ptr<Manager>> liveManagers();
    std::string takeStartError();
    void noteLocationIndicator();

    std::mutex _mutex;
    std::vector<std::weak_ptr<Manager>> _managers;
    std::map<std::string, LocationManager::AuthorizationStatus> _authorization;
    std::string _nextStartError;
    int _locationIndicatorCount = 0;
};

} // namespace tessel
