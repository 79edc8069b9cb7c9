#pragma once

#include <cstdint>

namespace tessel {

// Where the bulletin service shows a bulletin, as a bit set.
enum class BulletinDestinations : uint64_t {
    None = 0,
    Default = 1,
    LockScreen = 2,
    NotificationCentre = 4,
    Alert = 8,
    // Devices the bulletin is relayed to rather than shown on.
    Relay = 16,
    Mirror = 32,
};

} // namespace tessel
