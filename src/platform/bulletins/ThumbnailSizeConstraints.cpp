#include "platform/bulletins/ThumbnailSizeConstraints.h"

#include "platform/foundation/Format.h"

namespace tessel {

std::string ThumbnailSizeConstraints::description() const
{
    return format("<ThumbnailSizeConstraints reasonable: %d type: %ld scale: %f width: %f height: %f "
                  "dimension: %f aspect: %f-%f>",
        areReasonable, constraintType, static_cast<double>(thumbnailScale), static_cast<double>(fixedWidth),
        static_cast<double>(fixedHeight), static_cast<double>(fixedDimension),
        static_cast<double>(minAspectRatio), static_cast<double>(maxAspectRatio));
}

} // namespace tessel
