#include "platform/location/LocationServices.h"

#include "platform/concurrency/WorkQueue.h"
#include "platform/location/Region.h"

#include <algorithm>
#include <utility>

namespace tessel {

class LocationServices::Manager : public LocationManager, public std::enable_shared_from_this<Manager> {
public:
    Manager(std::weak_ptr<LocationServices> services, std::string effectiveBundleIdentifier)
        : _services(std::move(services))
        , _effectiveBundleIdentifier(std::move(effectiveBundleIdentifier))
    {
    }

    void setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) override
    {
        std::lock_guard lock(_mutex);
        _delegate = std::move(delegate);
    }

    void startMonitoringForRegion(const std::shared_ptr<Region>& region) override
    {
        if (!region)
            return;
        auto services = _services.lock();
        std::string error = services ? services->takeStartError() : std::string();
        if (!error.empty()) {
            notify([error](LocationManagerDelegate& d, Manager& m) {
                d.locationManagerDidFailWithError(m, error);
            });
            return;
        }
        {
            std::lock_guard lock(_mutex);
            std::erase_if(_regions, [&](auto& r) { return r->identifier() == region->identifier(); });
            _regions.push_back(region);
        }
        notify([region](LocationManagerDelegate& d, Manager& m) {
            d.locationManagerDidStartMonitoringForRegion(m, region);
        });
    }

    void stopMonitoringForRegion(const std::shared_ptr<Region>& region) override
    {
        if (!region)
            return;
        std::lock_guard lock(_mutex);
        std::erase_if(_regions, [&](auto& r) { return r->identifier() == region->identifier(); });
    }

    void markAsHavingReceivedLocation() override
    {
        if (auto services = _services.lock())
            services->noteLocationIndicator();
    }

    std::shared_ptr<Region> monitoredRegion(const std::string& identifier)
    {
        std::lock_guard lock(_mutex);
        auto found = std::find_if(
            _regions.begin(), _regions.end(), [&](auto& r) { return r->identifier() == identifier; });
        return found == _regions.end() ? nullptr : *found;
    }

    std::vector<std::string> monitoredIdentifiers()
    {
        std::lock_guard lock(_mutex);
        std::vector<std::string> identifiers;
        for (auto& region : _regions)
            identifiers.push_back(region->identifier());
        return identifiers;
    }

    void crossed(const std::shared_ptr<Region>& region, bool entered)
    {
        notify([region, entered](LocationManagerDelegate& d, Manager& m) {
            if (entered)
                d.locationManagerDidEnterRegion(m, region);
            else
                d.locationManagerDidExitRegion(m, region);
        });
    }

private:
    template <typename Call> void notify(Call call)
    {
        std::weak_ptr<Manager> weakSelf = shared_from_this();
        WorkQueue::main().async([weakSelf, call] {
            auto self = weakSelf.lock();
            if (!self)
                return;
            std::shared_ptr<LocationManagerDelegate> delegate;
            {
                std::lock_guard lock(self->_mutex);
                delegate = self->_delegate.lock();
            }
            if (delegate)
                call(*delegate, *self);
        });
    }

    std::weak_ptr<LocationServices> _services;
    const std::string _effectiveBundleIdentifier;
    std::mutex _mutex;
    std::weak_ptr<LocationManagerDelegate> _delegate;
    std::vector<std::shared_ptr<Region>> _regions;
};

std::shared_ptr<LocationManager> LocationServices::makeLocationManager(
    const std::string& effectiveBundleIdentifier)
{
    auto manager = std::make_shared<Manager>(weak_from_this(), effectiveBundleIdentifier);
    std::lock_guard lock(_mutex);
    std::erase_if(_managers, [](auto& weak) { return weak.expired(); });
    _managers.push_back(manager);
    return manager;
}

LocationManager::AuthorizationStatus LocationServices::authorizationStatusForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    std::lock_guard lock(_mutex);
    auto found = _authorization.find(bundleIdentifier);
    return found == _authorization.end() ? LocationManager::NotDetermined : found->second;
}

void LocationServices::setAuthorizationStatus(
    const std::string& bundleIdentifier, LocationManager::AuthorizationStatus status)
{
    std::lock_guard lock(_mutex);
    _authorization[bundleIdentifier] = status;
}

void LocationServices::reportCrossing(const std::string& regionIdentifier, bool entered)
{
    for (auto& manager : liveManagers()) {
        if (auto region = manager->monitoredRegion(regionIdentifier))
            manager->crossed(region, entered);
    }
}

void LocationServices::deliverCrossing(const std::shared_ptr<Region>& region, bool entered)
{
    for (auto& manager : liveManagers())
        manager->crossed(region, entered);
}

void LocationServices::failNextStart(std::string error)
{
    std::lock_guard lock(_mutex);
    _nextStartError = std::move(error);
}

std::vector<std::string> LocationServices::monitoredRegionIdentifiers()
{
    std::vector<std::string> identifiers;
    for (auto& manager : liveManagers()) {
        auto some = manager->monitoredIdentifiers();
        identifiers.insert(identifiers.end(), some.begin(), some.end());
    }
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}

int LocationServices::locationIndicatorCount()
{
    std::lock_guard lock(_mutex);
    return _locationIndicatorCount;
}

std::vector<std::shared_ptr<LocationServices::Manager>> LocationServices::liveManagers()
{
    std::lock_guard lock(_mutex);
    std::vector<std::shared_ptr<Manager>> managers;
    for (auto& weak : _managers) {
        if (auto manager = weak.lock())
            managers.push_back(std::move(manager));
    }
    return managers;
}

std::string LocationServices::takeStartError()
{
    std::lock_guard lock(_mutex);
    return std::exchange(_nextStartError, {});
}

void LocationServices::noteLocationIndicator()
{
    std::lock_guard lock(_mutex);
    ++_locationIndicatorCount;
}

} // namespace tessel
