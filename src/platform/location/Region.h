#pragma once

#include "platform/foundation/Archivable.h"

#include <memory>
#include <string>

namespace tessel {

class KeyedUnarchiver;

// A circular geographic area that triggers a local notification on entry or exit.
class Region : public Archivable {
public:
    static constexpr const char* archivedClassName = "Region";

    Region() = default;
    Region(std::string identifier, double latitude, double longitude, double radius);

    const std::string& identifier() const { return _identifier; }
    void setIdentifier(std::string identifier) { _identifier = std::move(identifier); }
    double latitude() const { return _latitude; }
    double longitude() const { return _longitude; }
    void setCenter(double latitude, double longitude)
    {
        _latitude = latitude;
        _longitude = longitude;
    }
    // Metres.
    double radius() const { return _radius; }
    void setRadius(double radius) { _radius = radius; }
    bool notifyOnEntry() const { return _notifyOnEntry; }
    void setNotifyOnEntry(bool notify) { _notifyOnEntry = notify; }
    bool notifyOnExit() const { return _notifyOnExit; }
    void setNotifyOnExit(bool notify) { _notifyOnExit = notify; }
    // The application the location service monitors the region for.
    const std::string& onBehalfOfBundleId() const { return _onBehalfOfBundleId; }
    void setOnBehalfOfBundleId(std::string bundleId) { _onBehalfOfBundleId = std::move(bundleId); }

    std::shared_ptr<Region> copy() const { return std::make_shared<Region>(*this); }

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    static std::shared_ptr<Region> decode(KeyedUnarchiver& coder);

private:
    std::string _identifier;
    double _latitude = 0;
    double _longitude = 0;
    double _radius = 0;
    bool _notifyOnEntry = true;
    bool _notifyOnExit = true;
    std::string _onBehalfOfBundleId;
};

} // namespace tessel
