#include "bulletins/BulletinTestSupport.h"

#include "platform/graphics/Image.h"
#include "platform/sim/CapturedSystemLog.h"

#include <cairo.h>
#include <cmath>
#include <cstring>
#include <limits>

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

ThumbnailSizeConstraints constraints(int64_t type, float scale, float width, float height, float dimension,
    float minimum, float maximum, bool reasonable = true)
{
    return { .areReasonable = reasonable,
        .thumbnailScale = scale,
        .fixedWidth = width,
        .fixedHeight = height,
        .fixedDimension = dimension,
        .minAspectRatio = minimum,
        .maxAspectRatio = maximum,
        .constraintType = type };
}

struct SizeCase {
    const char* name;
    ThumbnailSizeConstraints constraints;
    Size original;
    Size expected;
};

class SizeRule : public ::testing::TestWithParam<SizeCase> { };

TEST_P(SizeRule, Answers)
{
    SimulatedDevice device;
    const auto& c = GetParam();
    auto size = KTDefaultDataProvider::_sizeFromSizeConstraint(c.constraints, c.original);
    EXPECT_DOUBLE_EQ(size.width, c.expected.width);
    EXPECT_DOUBLE_EQ(size.height, c.expected.height);
}

using T = ThumbnailSizeConstraints;

INSTANTIATE_TEST_SUITE_P(Cases, SizeRule,
    ::testing::Values(SizeCase { "FixedWidthScaled", constraints(T::FixedWidth, 2, 100, 0, 0, 0.5, 3),
                          { 400, 200 }, { 200, 100 } },
        SizeCase { "FixedWidthClampedToMinimum", constraints(T::FixedWidth, 1, 100, 0, 0, 0.5, 3),
            { 100, 400 }, { 100, 200 } },
        SizeCase {
            "FixedHeight", constraints(T::FixedHeight, 1, 0, 50, 0, 0.5, 3), { 400, 200 }, { 100, 50 } },
        SizeCase { "FixedSizeIgnoresTheShape", constraints(T::FixedSize, 2, 30, 40, 0, 0.5, 3), { 1000, 10 },
            { 60, 80 } },
        SizeCase { "LongerSideSquare", constraints(T::FixedLongerSide, 1, 0, 0, 50, 0.5, 2), { 100, 100 },
            { 50, 50 } },
        SizeCase { "LongerSideWideClamped", constraints(T::FixedLongerSide, 1, 0, 0, 50, 0.5, 2),
            { 300, 100 }, { 50, 25 } },
        SizeCase { "LongerSideTall", constraints(T::FixedLongerSide, 1, 0, 0, 50, 0.5, 2), { 100, 150 },
            { 100.0 / 150 * 50, 50 } },
        SizeCase { "ShorterSideSquare", constraints(T::FixedShorterSide, 1, 0, 0, 50, 0.5, 2), { 100, 100 },
            { 50, 50 } },
        SizeCase { "ShorterSideTallClamped", constraints(T::FixedShorterSide, 1, 0, 0, 50, 0.5, 2),
            { 100, 300 }, { 50, 100 } },
        SizeCase { "ShorterSideWide", constraints(T::FixedShorterSide, 1, 0, 0, 50, 0.5, 2), { 150, 100 },
            { 75, 50 } },
        // The lower bound is applied last and wins.
        SizeCase {
            "CrossedBounds", constraints(T::FixedWidth, 1, 100, 0, 0, 4, 2), { 100, 100 }, { 100, 25 } },
        SizeCase { "ZeroHeightClampsToMaximum", constraints(T::FixedWidth, 1, 100, 0, 0, 0.5, 2), { 100, 0 },
            { 100, 50 } },
        SizeCase { "ZeroSizeClampsToMaximum", constraints(T::FixedLongerSide, 1, 0, 0, 60, 0.5, 3), { 0, 0 },
            { 60, 20 } },
        SizeCase { "UnknownType", constraints(7, 1, 100, 100, 100, 0.5, 2), { 123, 45 }, { 123, 45 } },
        SizeCase { "NotReasonable", constraints(T::FixedSize, 1, 30, 40, 0, 0.5, 2, false), { 123, 45 },
            { 123, 45 } },
        SizeCase { "ZeroWidth", constraints(T::FixedWidth, 1, 0, 0, 0, 0.5, 2), { 123, 45 }, { 123, 45 } },
        SizeCase {
            "NegativeScale", constraints(T::FixedSize, -1, 30, 40, 0, 0.5, 2), { 123, 45 }, { 123, 45 } },
        SizeCase { "InfiniteWidth", constraints(T::FixedWidth, 1, infinity, 0, 0, 0.5, 2), { 123, 45 },
            { 123, 45 } },
        SizeCase {
            "NaNScale", constraints(T::FixedLongerSide, nan, 0, 0, 50, 0.5, 2), { 123, 45 }, { 123, 45 } },
        SizeCase { "ZeroBoundsDivideByZero", constraints(T::FixedWidth, 1, 100, 0, 0, 0, 0), { 123, 45 },
            { 123, 45 } },
        SizeCase {
            "NaNBounds", constraints(T::FixedShorterSide, 1, 0, 0, 50, nan, nan), { 123, 45 }, { 123, 45 } }),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SizeRuleLog, UnknownTypeIsLogged)
{
    SimulatedDevice device;
    KTDefaultDataProvider::_sizeFromSizeConstraint(constraints(7, 1, 1, 1, 1, 1, 1), { 1, 1 });
    EXPECT_TRUE(device.systemLog().contains("Unrecognized constraint type. Bailing."));
}

// Top half red, bottom half blue.
std::shared_ptr<Image> twoToneImage(int width, int height)
{
    std::vector<uint32_t> pixels(size_t(width) * height);
    for (int y = 0; y < height; ++y)
        std::fill_n(pixels.begin() + size_t(y) * width, width, y < height / 2 ? 0xffff0000u : 0xff0000ffu);
    return Image::imageWithPixels(width, height, pixels);
}

struct DecodedPNG {
    int width = 0;
    int height = 0;
    uint32_t top = 0;
    uint32_t bottom = 0;
};

// Read back with cairo directly, not through the code under test.
DecodedPNG decode(const Bytes& png)
{
    struct Cursor {
        const Bytes& data;
        size_t offset = 0;
    } cursor { png };
    auto surface = cairo_image_surface_create_from_png_stream(
        [](void* closure, unsigned char* out, unsigned int length) {
            auto& c = *static_cast<Cursor*>(closure);
            if (c.data.size() - c.offset < length)
                return CAIRO_STATUS_READ_ERROR;
            std::copy_n(c.data.begin() + c.offset, length, out);
            c.offset += length;
            return CAIRO_STATUS_SUCCESS;
        },
        &cursor);
    DecodedPNG decoded;
    if (cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS) {
        decoded.width = cairo_image_surface_get_width(surface);
        decoded.height = cairo_image_surface_get_height(surface);
        auto* data = cairo_image_surface_get_data(surface);
        auto stride = cairo_image_surface_get_stride(surface);
        int x = decoded.width / 2;
        std::memcpy(&decoded.top, data + x * 4, 4);
        std::memcpy(&decoded.bottom, data + size_t(decoded.height - 1) * stride + x * 4, 4);
    }
    cairo_surface_destroy(surface);
    return decoded;
}

class Attachments : public ProviderTest {
protected:
    void SetUp() override
    {
        host();
        provider->setImageLookup(
            [this](const std::string& recordID) { return recordID == "with-image" ? image : nullptr; });
    }

    std::shared_ptr<Image> image = twoToneImage(40, 20);
};

TEST_F(Attachments, DrawsTheImageUprightAtTheTargetSize)
{
    auto png = service.attachmentPNGData(app, "with-image", constraints(T::FixedWidth, 2, 100, 0, 0, 0.5, 3));
    ASSERT_TRUE(png);
    auto decoded = decode(*png);
    EXPECT_EQ(decoded.width, 200);
    EXPECT_EQ(decoded.height, 100);
    EXPECT_EQ(decoded.top, 0xffff0000u);
    EXPECT_EQ(decoded.bottom, 0xff0000ffu);

    // Stretched, not fitted: the fixed size wins over the image's shape.
    png = service.attachmentPNGData(app, "with-image", constraints(T::FixedSize, 1, 10, 90, 0, 0.5, 3));
    ASSERT_TRUE(png);
    decoded = decode(*png);
    EXPECT_EQ(decoded.width, 10);
    EXPECT_EQ(decoded.height, 90);
    EXPECT_EQ(decoded.top, 0xffff0000u);
    EXPECT_EQ(decoded.bottom, 0xff0000ffu);

    EXPECT_FLOAT_EQ(service.attachmentAspectRatio(app, "with-image").value_or(0), 2.0f);
}

TEST_F(Attachments, HugeTargetsAreCappedAndLogged)
{
    auto png
        = service.attachmentPNGData(app, "with-image", constraints(T::FixedSize, 1, 1e6f, 5e5f, 0, 0.5, 3));
    ASSERT_TRUE(png);
    auto decoded = decode(*png);
    EXPECT_EQ(decoded.width, Image::maximumDimension);
    EXPECT_EQ(decoded.height, Image::maximumDimension / 2);
    EXPECT_TRUE(device.systemLog().contains("Attachment for recordID with-image asked for"));

    // Unusable constraints leave the image's own size.
    png = service.attachmentPNGData(app, "with-image", constraints(T::FixedSize, 1, nan, -1, 0, 0.5, 3));
    ASSERT_TRUE(png);
    decoded = decode(*png);
    EXPECT_EQ(decoded.width, 40);
    EXPECT_EQ(decoded.height, 20);
}

TEST_F(Attachments, WithoutAnImageThereIsNoDataAndASquare)
{
    EXPECT_EQ(service.attachmentPNGData(app, "other", constraints(T::FixedWidth, 1, 10, 0, 0, 0.5, 3)),
        std::nullopt);
    EXPECT_EQ(service.attachmentAspectRatio(app, "other"), 1.0f);
    EXPECT_TRUE(
        device.systemLog().contains("No image found for recordID other yet we're being asked for its data"));
    EXPECT_TRUE(
        device.systemLog().contains("No image found for recordID other yet we're being asked for a scale"));

    // Without a lookup there is never an image.
    provider->setImageLookup(nullptr);
    EXPECT_EQ(service.attachmentPNGData(app, "with-image", constraints(T::FixedWidth, 1, 10, 0, 0, 0.5, 3)),
        std::nullopt);
    EXPECT_EQ(service.attachmentAspectRatio(app, "with-image"), 1.0f);
}

TEST(Image, DecodesOnlyPNGsOfAcceptableSize)
{
    auto image = twoToneImage(3, 2);
    auto png = image->pngData();
    ASSERT_TRUE(png);
    auto decoded = Image::imageWithPNGData(*png);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->width(), 3);
    EXPECT_EQ(decoded->pixelAt(1, 0), 0xffff0000u);
    EXPECT_EQ(decoded->pixelAt(1, 1), 0xff0000ffu);

    // The header claims 100000 x 100000: refused before anything is decoded.
    auto huge = *png;
    huge[16] = 0, huge[17] = 1, huge[18] = 0x86, huge[19] = 0xa0;
    huge[20] = 0, huge[21] = 1, huge[22] = 0x86, huge[23] = 0xa0;
    EXPECT_FALSE(Image::imageWithPNGData(huge));
    auto truncated = Bytes(png->begin(), png->begin() + png->size() / 2);
    EXPECT_FALSE(Image::imageWithPNGData(truncated));
    EXPECT_FALSE(Image::imageWithPNGData({}));
    EXPECT_FALSE(Image::imageWithPixels(2, 2, { 1, 2, 3 }));
}

} // namespace
