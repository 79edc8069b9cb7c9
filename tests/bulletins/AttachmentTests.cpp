#include "bulletins/BulletinTestSupport.h"

#include "platform/graphics/Image.h"
#include "platform/sim/CapturedSystemLog.h"

#include <cmath>
#include <limits>

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

ThumbnailSizeConstraints constraints(int64_t type, float scale, float width, float height, float dimension,
    float minimum, float maximum, bool reasonable = true)
{
    return { reasonable, scale, width, height, dimension, minimum, maximum, type };
}

using T = ThumbnailSizeConstraints;

TEST(SizeRule, FitsTheConstraintsOrKeepsTheOriginal)
{
    struct {
        const char* name;
        ThumbnailSizeConstraints constraints;
        Size original, expected;
    } cases[] = {
        { "FixedWidthScaled", constraints(T::FixedWidth, 2, 100, 0, 0, 0.5, 3), { 400, 200 }, { 200, 100 } },
        { "FixedWidthClamped", constraints(T::FixedWidth, 1, 100, 0, 0, 0.5, 3), { 100, 400 }, { 100, 200 } },
        { "FixedHeight", constraints(T::FixedHeight, 1, 0, 50, 0, 0.5, 3), { 400, 200 }, { 100, 50 } },
        { "FixedSizeStretches", constraints(T::FixedSize, 2, 30, 40, 0, 0.5, 3), { 1000, 10 }, { 60, 80 } },
        { "LongerWide", constraints(T::FixedLongerSide, 1, 0, 0, 50, 0.5, 2), { 300, 100 }, { 50, 25 } },
        { "LongerTall", constraints(T::FixedLongerSide, 1, 0, 0, 50, 0.5, 2), { 100, 150 },
            { 100.0 / 3, 50 } },
        { "ShorterTall", constraints(T::FixedShorterSide, 1, 0, 0, 50, 0.5, 2), { 100, 300 }, { 50, 100 } },
        { "ShorterWide", constraints(T::FixedShorterSide, 1, 0, 0, 50, 0.5, 2), { 150, 100 }, { 75, 50 } },
        // The lower bound is applied last and wins.
        { "CrossedBounds", constraints(T::FixedWidth, 1, 100, 0, 0, 4, 2), { 100, 100 }, { 100, 25 } },
        { "ZeroHeightIsWidest", constraints(T::FixedWidth, 1, 100, 0, 0, 0.5, 2), { 100, 0 }, { 100, 50 } },
        { "ZeroSizeIsWidest", constraints(T::FixedLongerSide, 1, 0, 0, 60, 0.5, 3), { 0, 0 }, { 60, 20 } },
        // Constraints that cannot be met leave the original size.
        { "UnknownType", constraints(7, 1, 100, 100, 100, 0.5, 2), { 123, 45 }, { 123, 45 } },
        { "NotReasonable", constraints(T::FixedSize, 1, 30, 40, 0, 0.5, 2, false), { 123, 45 }, { 123, 45 } },
        { "ZeroWidth", constraints(T::FixedWidth, 1, 0, 0, 0, 0.5, 2), { 123, 45 }, { 123, 45 } },
        { "NegativeScale", constraints(T::FixedSize, -1, 30, 40, 0, 0.5, 2), { 123, 45 }, { 123, 45 } },
        { "InfiniteWidth", constraints(T::FixedWidth, 1, infinity, 0, 0, 0.5, 2), { 123, 45 }, { 123, 45 } },
        { "NaNScale", constraints(T::FixedLongerSide, nan, 0, 0, 50, 0.5, 2), { 123, 45 }, { 123, 45 } },
        { "ZeroBounds", constraints(T::FixedWidth, 1, 100, 0, 0, 0, 0), { 123, 45 }, { 123, 45 } },
        { "NaNBounds", constraints(T::FixedShorterSide, 1, 0, 0, 50, nan, nan), { 123, 45 }, { 123, 45 } },
    };
    SimulatedDevice device;
    for (const auto& c : cases) {
        device.systemLog().clear();
        auto size = KTDefaultDataProvider::_sizeFromSizeConstraint(c.constraints, c.original);
        EXPECT_DOUBLE_EQ(size.width, c.expected.width) << c.name;
        EXPECT_DOUBLE_EQ(size.height, c.expected.height) << c.name;
        EXPECT_EQ(device.systemLog().contains("Unrecognized constraint type. Bailing."),
            std::string_view(c.name) == "UnknownType")
            << c.name;
    }
}

// Top half red, bottom half blue.
std::shared_ptr<Image> twoToneImage(int width, int height)
{
    std::vector<uint32_t> pixels(size_t(width) * height);
    for (int y = 0; y < height; ++y)
        std::fill_n(pixels.begin() + size_t(y) * width, width, y < height / 2 ? 0xffff0000u : 0xff0000ffu);
    return Image::imageWithPixels(width, height, pixels);
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

TEST_F(Attachments, DrawTheImageUprightAtTheTargetSize)
{
    constexpr int maximum = Image::maximumDimension;
    struct {
        ThumbnailSizeConstraints constraints;
        int width, height;
    } cases[] = {
        { constraints(T::FixedWidth, 2, 100, 0, 0, 0.5, 3), 200, 100 },
        // Stretched, not fitted: the fixed size wins over the image's shape.
        { constraints(T::FixedSize, 1, 10, 90, 0, 0.5, 3), 10, 90 },
        // One side too long: both shrink, keeping the shape.
        { constraints(T::FixedSize, 1, 4 * maximum, maximum / 2, 0, 0.5, 3), maximum, maximum / 8 },
        // Unusable constraints leave the image's own size.
        { constraints(T::FixedSize, 1, nan, -1, 0, 0.5, 3), 40, 20 },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.width << " x " << c.height);
        auto png = service.attachmentPNGData(app, "with-image", c.constraints);
        auto drawn = png ? Image::imageWithPNGData(*png) : nullptr;
        ASSERT_TRUE(drawn);
        EXPECT_EQ(drawn->width(), c.width);
        EXPECT_EQ(drawn->height(), c.height);
        EXPECT_EQ(drawn->pixelAt(c.width / 2, 0), 0xffff0000u);
        EXPECT_EQ(drawn->pixelAt(c.width / 2, c.height - 1), 0xff0000ffu);
    }
    EXPECT_EQ(device.systemLog().count("Attachment for recordID with-image asked for"), 1u);
    EXPECT_FLOAT_EQ(service.attachmentAspectRatio(app, "with-image").value_or(0), 2.0f);
}

TEST_F(Attachments, WithoutAnImageThereIsNoDataAndASquare)
{
    auto fixedWidth = constraints(T::FixedWidth, 1, 10, 0, 0, 0.5, 3);
    EXPECT_EQ(service.attachmentPNGData(app, "other", fixedWidth), std::nullopt);
    EXPECT_EQ(service.attachmentAspectRatio(app, "other"), 1.0f);
    EXPECT_TRUE(
        device.systemLog().contains("No image found for recordID other yet we're being asked for its data"));
    EXPECT_TRUE(
        device.systemLog().contains("No image found for recordID other yet we're being asked for a scale"));

    // Without a lookup there is never an image.
    provider->setImageLookup(nullptr);
    EXPECT_EQ(service.attachmentPNGData(app, "with-image", fixedWidth), std::nullopt);
    EXPECT_EQ(service.attachmentAspectRatio(app, "with-image"), 1.0f);
}

TEST(Image, DecodesOnlyPNGsOfAcceptableSize)
{
    auto png = twoToneImage(3, 2)->pngData();
    ASSERT_TRUE(png && Image::imageWithPNGData(*png));

    // The header claims 100000 x 100000: refused before anything is decoded.
    auto huge = *png;
    huge[16] = 0, huge[17] = 1, huge[18] = 0x86, huge[19] = 0xa0;
    huge[20] = 0, huge[21] = 1, huge[22] = 0x86, huge[23] = 0xa0;
    EXPECT_FALSE(Image::imageWithPNGData(huge));
    EXPECT_FALSE(Image::imageWithPNGData(Bytes(png->begin(), png->begin() + png->size() / 2)));
    EXPECT_FALSE(Image::imageWithPNGData({}));
    EXPECT_FALSE(Image::imageWithPixels(2, 2, { 1, 2, 3 }));
}

} // namespace
