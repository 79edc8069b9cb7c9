#include "bulletins/KTDefaultDataProvider.h"

#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/Format.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/ImageContext.h"
#include "platform/logging/SystemLog.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tessel {

namespace {

    // Whole pixels, at least one and at most the largest surface we draw on
    // either side; the shape is kept when a side has to shrink.
    Size drawingSize(Size size, const std::string& recordID)
    {
        const double maximum = Image::maximumDimension;
        Size drawn = size;
        if (drawn.width > maximum || drawn.height > maximum) {
            double factor = std::min(maximum / drawn.width, maximum / drawn.height);
            drawn = { drawn.width * factor, drawn.height * factor };
            Platform::log(LogPriority::Warning,
                format("Attachment for recordID %@ asked for %f x %f, drawing %f x %f instead", recordID,
                    size.width, size.height, drawn.width, drawn.height));
        }
        return { std::clamp(std::round(drawn.width), 1.0, maximum),
            std::clamp(std::round(drawn.height), 1.0, maximum) };
    }

} // namespace

Size KTDefaultDataProvider::_sizeFromSizeConstraint(
    const ThumbnailSizeConstraints& constraints, Size originalSize)
{
    if (!constraints.areReasonable)
        return originalSize;
    const double scale = constraints.thumbnailScale;
    const double fixedWidth = static_cast<double>(constraints.fixedWidth) * scale;
    const double fixedHeight = static_cast<double>(constraints.fixedHeight) * scale;
    const double dimension = static_cast<double>(constraints.fixedDimension) * scale;

    Size size;
    if (constraints.constraintType == ThumbnailSizeConstraints::FixedSize) {
        size = { fixedWidth, fixedHeight };
    } else {
        // A zero height is as wide as it gets; it clamps to the upper bound.
        double ratio = originalSize.height != 0 ? originalSize.width / originalSize.height
                                                : std::numeric_limits<double>::infinity();
        ratio = std::min(static_cast<double>(constraints.maxAspectRatio), ratio);
        // The lower bound goes last, so it wins when the bounds cross.
        ratio = std::max(ratio, static_cast<double>(constraints.minAspectRatio));
        switch (constraints.constraintType) {
        case ThumbnailSizeConstraints::FixedWidth:
            size = { fixedWidth, fixedWidth / ratio };
            break;
        case ThumbnailSizeConstraints::FixedHeight:
            size = { ratio * fixedHeight, fixedHeight };
            break;
        case ThumbnailSizeConstraints::FixedLongerSide:
            size
                = ratio > 1.0 ? Size { dimension, dimension / ratio } : Size { ratio * dimension, dimension };
            break;
        case ThumbnailSizeConstraints::FixedShorterSide:
            size = ratio >= 1.0 ? Size { ratio * dimension, dimension }
                                : Size { dimension, dimension / ratio };
            break;
        default:
            Platform::log(LogPriority::Warning, "Unrecognized constraint type. Bailing.");
            return originalSize;
        }
    }
    // Zero, negative or non-finite lengths in the constraints: nothing to draw
    // at, so the image keeps its own size.
    return size.isDrawable() ? size : originalSize;
}

std::shared_ptr<Image> KTDefaultDataProvider::_imageForRecordID(const std::string& recordID) const
{
    ImageLookup lookup;
    {
        std::lock_guard lock(_lock);
        lookup = _imageLookup;
    }
    return lookup ? lookup(recordID) : nullptr;
}

void KTDefaultDataProvider::setImageLookup(ImageLookup lookup)
{
    std::lock_guard lock(_lock);
    _imageLookup = std::move(lookup);
}

std::optional<Bytes> KTDefaultDataProvider::attachmentPNGDataForRecordID(
    const std::string& recordID, const ThumbnailSizeConstraints& constraints)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto image = _imageForRecordID(recordID);
    if (!image) {
        Platform::log(LogPriority::Warning,
            format("No image found for recordID %@ yet we're being asked for its data", recordID));
        return std::nullopt;
    }
    auto size = drawingSize(_sizeFromSizeConstraint(constraints, image->size()), recordID);
    ImageContext context(size);
    // Bitmaps are drawn from their lower-left corner; flipped, the image is upright.
    context.translate(0, size.height);
    context.scale(1.0, -1.0);
    context.drawImage(*image, { 0, 0, size.width, size.height });
    auto drawn = context.image();
    return drawn ? drawn->pngData() : std::nullopt;
}

float KTDefaultDataProvider::attachmentAspectRatioForRecordID(const std::string& recordID)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto image = _imageForRecordID(recordID);
    if (!image) {
        Platform::log(LogPriority::Warning,
            format("No image found for recordID %@ yet we're being asked for a scale", recordID));
        return 1.0f;
    }
    return static_cast<float>(image->size().width / image->size().height);
}

} // namespace tessel
