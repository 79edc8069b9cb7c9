#include "platform/graphics/ImageContext.h"

#include "platform/graphics/Image.h"

#include <algorithm>
#include <cairo.h>
#include <cmath>
#include <cstring>

namespace tessel {

namespace {

    int pixels(double length)
    {
        if (!std::isfinite(length) || length < 1)
            return 1;
        return static_cast<int>(std::min<double>(std::lround(length), Image::maximumDimension));
    }

} // namespace

ImageContext::ImageContext(Size size)
    : _surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels(size.width), pixels(size.height)))
    , _context(cairo_create(_surface))
{
}

ImageContext::~ImageContext()
{
    cairo_destroy(_context);
    cairo_surface_destroy(_surface);
}

Size ImageContext::size() const
{
    return { static_cast<double>(cairo_image_surface_get_width(_surface)),
        static_cast<double>(cairo_image_surface_get_height(_surface)) };
}

void ImageContext::translate(double x, double y) { cairo_translate(_context, x, y); }

void ImageContext::scale(double x, double y)
{
    // A singular matrix puts cairo into an error state for good; drawing
    // nothing is the same picture.
    if (x != 0 && y != 0 && std::isfinite(x) && std::isfinite(y))
        cairo_scale(_context, x, y);
}

void ImageContext::drawImage(const Image& image, Rect rect)
{
    if (!(rect.width > 0 && rect.height > 0 && std::isfinite(rect.width) && std::isfinite(rect.height)
            && std::isfinite(rect.x) && std::isfinite(rect.y)))
        return;
    cairo_save(_context);
    cairo_translate(_context, rect.x, rect.y + rect.height);
    cairo_scale(_context, rect.width / image.width(), -rect.height / image.height());
    cairo_set_source_surface(_context, image.surface(), 0, 0);
    // Edges repeat outward instead of fading into transparency when stretched.
    cairo_pattern_set_extend(cairo_get_source(_context), CAIRO_EXTEND_PAD);
    cairo_rectangle(_context, 0, 0, image.width(), image.height());
    cairo_fill(_context);
    cairo_restore(_context);
}

std::shared_ptr<Image> ImageContext::image() const
{
    cairo_surface_flush(_surface);
    int width = cairo_image_surface_get_width(_surface);
    int height = cairo_image_surface_get_height(_surface);
    auto copy = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    if (cairo_surface_status(copy) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(copy);
        return nullptr;
    }
    cairo_surface_flush(copy);
    auto fromStride = cairo_image_surface_get_stride(_surface);
    auto toStride = cairo_image_surface_get_stride(copy);
    const auto* from = cairo_image_surface_get_data(_surface);
    auto* to = cairo_image_surface_get_data(copy);
    for (int y = 0; y < height; ++y)
        std::memcpy(to + size_t(y) * toStride, from + size_t(y) * fromStride, size_t(width) * 4);
    cairo_surface_mark_dirty(copy);
    return std::make_shared<Image>(copy);
}

} // namespace tessel
