#pragma once

#include "platform/bulletins/BulletinDestinations.h"
#include "platform/foundation/Date.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tessel {

// What the bulletin service asks a data provider for.
struct BulletinRequestParameters {
    BulletinDestinations publisherDestination = BulletinDestinations::Default;
    // 0 for no limit.
    uint64_t maximumCount = 0;
    // Only bulletins dated at or after it.
    std::optional<Date> sinceDate;

    std::string description() const;
    bool operator==(const BulletinRequestParameters&) const = default;
};

} // namespace tessel
