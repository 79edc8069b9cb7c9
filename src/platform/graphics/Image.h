#pragma once

#include "platform/foundation/Geometry.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct _cairo_surface;

namespace tessel {

// A bitmap in memory: 32-bit premultiplied ARGB pixels, first row on top.
class Image {
public:
    // Neither side of an image we decode or draw may exceed this, so a bad
    // size never turns into a huge allocation.
    static constexpr int maximumDimension = 4096;

    // Null when the data is not a PNG we can decode or is larger than allowed.
    static std::shared_ptr<Image> imageWithPNGData(const Bytes& data);
    // pixels holds width * height ARGB values, row by row; null for any other count.
    static std::shared_ptr<Image> imageWithPixels(int width, int height, const std::vector<uint32_t>& pixels);

    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    int width() const;
    int height() const;
    Size size() const { return { static_cast<double>(width()), static_cast<double>(height()) }; }
    // 0 outside the image.
    uint32_t pixelAt(int x, int y) const;
    std::optional<Bytes> pngData() const;

    // Takes over a reference to an image surface.
    explicit Image(_cairo_surface* surface);
    _cairo_surface* surface() const { return _surface; }

private:
    _cairo_surface* _surface;
};

} // namespace tessel
