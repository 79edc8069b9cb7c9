#include "platform/location/Region.h"

#include <cmath>

#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

namespace tessel {

Region::Region(std::string identifier, double latitude, double longitude, double radius)
    : _identifier(std::move(identifier))
    , _latitude(latitude)
    , _longitude(longitude)
    , _radius(radius)
{
}

void Region::encodeWithCoder(KeyedArchiver& coder) const
{
    coder.encodeObject(_identifier, "identifier");
    coder.encodeDouble(_latitude, "latitude");
    coder.encodeDouble(_longitude, "longitude");
    coder.encodeDouble(_radius, "radius");
    coder.encodeBool(_notifyOnEntry, "notifyOnEntry");
    coder.encodeBool(_notifyOnExit, "notifyOnExit");
    if (!_onBehalfOfBundleId.empty())
        coder.encodeObject(_onBehalfOfBundleId, "onBehalfOfBundleId");
}

std::shared_ptr<Region> Region::decode(KeyedUnarchiver& coder)
{
    double latitude = coder.decodeDouble("latitude");
    double longitude = coder.decodeDouble("longitude");
    double radius = coder.decodeDouble("radius");
    // No place is at a NaN or infinite coordinate; such a record is refused.
    if (!std::isfinite(latitude) || !std::isfinite(longitude) || !std::isfinite(radius))
        return nullptr;
    auto region = std::make_shared<Region>(
        coder.decodeObject("identifier").stringValue(), latitude, longitude, radius);
    region->_notifyOnEntry = coder.decodeBool("notifyOnEntry");
    region->_notifyOnExit = coder.decodeBool("notifyOnExit");
    region->_onBehalfOfBundleId = coder.decodeObject("onBehalfOfBundleId").stringValue();
    return region;
}

std::string Region::description() const
{
    return format("<Region %s (%f, %f) radius %f m entry %d exit %d for %s>", _identifier, _latitude,
        _longitude, _radius, _notifyOnEntry, _notifyOnExit, _onBehalfOfBundleId);
}

bool Region::isEqual(const Archivable& other) const
{
    auto region = dynamic_cast<const Region*>(&other);
    return region && region->_identifier == _identifier && region->_latitude == _latitude
        && region->_longitude == _longitude && region->_radius == _radius
        && region->_notifyOnEntry == _notifyOnEntry && region->_notifyOnExit == _notifyOnExit
        && region->_onBehalfOfBundleId == _onBehalfOfBundleId;
}

} // namespace tessel
