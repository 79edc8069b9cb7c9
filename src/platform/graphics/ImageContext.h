#pragma once

#include "platform/foundation/Geometry.h"

#include <memory>

struct _cairo;
struct _cairo_surface;

namespace tessel {

class Image;

// A transparent bitmap to draw into. Coordinates start at its top-left corner.
class ImageContext {
public:
    // Rounded to whole pixels, at least 1 and at most Image::maximumDimension per side.
    explicit ImageContext(Size size);
    ~ImageContext();
    ImageContext(const ImageContext&) = delete;
    ImageContext& operator=(const ImageContext&) = delete;

    // The bitmap's size in pixels.
    Size size() const;

    void translate(double x, double y);
    void scale(double x, double y);
    // Stretches the image over the rectangle. As with bitmap drawing in
    // general, the image's origin is its lower-left corner: it lands on the
    // rectangle's bottom edge, so an unflipped context shows it upside down.
    void drawImage(const Image& image, Rect rect);

    // What was drawn so far.
    std::shared_ptr<Image> image() const;

private:
    _cairo_surface* _surface;
    _cairo* _context;
};

} // namespace tessel
