#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// The size the bulletin service wants an attachment thumbnail drawn at. Fixed
// lengths are in points before thumbnailScale is applied.
struct ThumbnailSizeConstraints {
    enum : int64_t {
        FixedWidth = 0,
        FixedHeight = 1,
        FixedSize = 2,
        FixedLongerSide = 3,
        FixedShorterSide = 4,
    };

    bool areReasonable = false;
    float thumbnailScale = 1;
    float fixedWidth = 0;
    float fixedHeight = 0;
    float fixedDimension = 0;
    float minAspectRatio = 0;
    float maxAspectRatio = 0;
    int64_t constraintType = FixedWidth;

    std::string description() const;
    bool operator==(const ThumbnailSizeConstraints&) const = default;
};

} // namespace tessel
