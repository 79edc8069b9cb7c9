#pragma once

namespace tessel {

// The device's restrictions, as set by whoever manages it.
class ProfileConnection {
public:
    virtual ~ProfileConnection() = default;
    virtual bool isAutomaticAppUpdatesAllowed() = 0;
};

} // namespace tessel
