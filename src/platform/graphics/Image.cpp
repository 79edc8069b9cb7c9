#include "platform/graphics/Image.h"

#include <cairo.h>
#include <cstring>

namespace tessel {

namespace {

    struct ReadCursor {
        const Bytes& data;
        size_t offset = 0;
    };

    cairo_status_t readPNG(void* closure, unsigned char* bytes, unsigned int length)
    {
        auto& cursor = *static_cast<ReadCursor*>(closure);
        if (cursor.data.size() - cursor.offset < length)
            return CAIRO_STATUS_READ_ERROR;
        std::memcpy(bytes, cursor.data.data() + cursor.offset, length);
        cursor.offset += length;
        return CAIRO_STATUS_SUCCESS;
    }

    cairo_status_t writePNG(void* closure, const unsigned char* bytes, unsigned int length)
    {
        auto& out = *static_cast<Bytes*>(closure);
        out.insert(out.end(), bytes, bytes + length);
        return CAIRO_STATUS_SUCCESS;
    }

    uint32_t bigEndian32(const uint8_t* bytes)
    {
        return uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 | bytes[3];
    }

    // The size in the header chunk, checked before the decoder allocates anything.
    bool hasAcceptableHeader(const Bytes& data)
    {
        static constexpr uint8_t signature[] = { 0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n' };
        if (data.size() < 24 || std::memcmp(data.data(), signature, sizeof signature)
            || std::memcmp(data.data() + 12, "IHDR", 4))
            return false;
        auto width = bigEndian32(data.data() + 16);
        auto height = bigEndian32(data.data() + 20);
        return width > 0 && height > 0 && width <= Image::maximumDimension
            && height <= Image::maximumDimension;
    }

} // namespace

Image::Image(cairo_surface_t* surface)
    : _surface(surface)
{
}

Image::~Image() { cairo_surface_destroy(_surface); }

std::shared_ptr<Image> Image::imageWithPNGData(const Bytes& data)
{
    if (!hasAcceptableHeader(data))
        return nullptr;
    ReadCursor cursor { data };
    auto surface = cairo_image_surface_create_from_png_stream(readPNG, &cursor);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    return std::make_shared<Image>(surface);
}

std::shared_ptr<Image> Image::imageWithPixels(int width, int height, const std::vector<uint32_t>& pixels)
{
    if (width <= 0 || height <= 0 || width > maximumDimension || height > maximumDimension
        || pixels.size() != size_t(width) * size_t(height))
        return nullptr;
    auto surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_surface_flush(surface);
    auto stride = cairo_image_surface_get_stride(surface);
    auto* rows = cairo_image_surface_get_data(surface);
    for (int y = 0; y < height; ++y)
        std::memcpy(rows + size_t(y) * stride, pixels.data() + size_t(y) * width, size_t(width) * 4);
    cairo_surface_mark_dirty(surface);
    return std::make_shared<Image>(surface);
}

int Image::width() const { return cairo_image_surface_get_width(_surface); }

int Image::height() const { return cairo_image_surface_get_height(_surface); }

uint32_t Image::pixelAt(int x, int y) const
{
    if (x < 0 || y < 0 || x >= width() || y >= height())
        return 0;
    cairo_surface_flush(_surface);
    auto* row = cairo_image_surface_get_data(_surface) + size_t(y) * cairo_image_surface_get_stride(_surface);
    uint32_t pixel;
    std::memcpy(&pixel, row + size_t(x) * 4, 4);
    return pixel;
}

std::optional<Bytes> Image::pngData() const
{
    Bytes data;
    if (cairo_surface_write_to_png_stream(_surface, writePNG, &data) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    return data;
}

} // namespace tessel
