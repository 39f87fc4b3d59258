#include "playback/FrameCompositor.h"

#include "codec/Photo.h"
#include "tests/support/JpegWriter.h"

#include <gtest/gtest.h>

namespace lumenar::playback {
namespace {

TEST(FrameGeometry, CentresTheDesignSizeOrFitsItsShape)
{
    struct Case
    {
        int width, height;
        bool large;
        Rect frame;
    } cases[] = {
        {1024, 768, true, {112, 84, 912, 684}}, // Room to spare: the design size, centred.
        {800, 600, true, {0, 0, 800, 600}},     // Exactly the design size is fitted, not centred.
        {1000, 500, true, {167, 0, 833, 500}},  // Wider: full height, 666 wide.
        {801, 1000, true, {0, 200, 800, 800}},  // Taller: full width, the odd width made even.
        {700, 700, false, {30, 110, 670, 590}}, // The small design size.
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height);
        EXPECT_EQ(FrameGeometry(c.width, c.height, c.large), c.frame);
    }
}

TEST(BilinearStretch, TruncatesAndShiftsArithmetically)
{
    struct Case
    {
        std::uint8_t left, right;
        std::uint8_t expected[4];
    } cases[] = {
        {0, 255, {0, 127, 255, 255}},
        {255, 0, {255, 127, 0, 0}}, // 255 + (-255 * 0.5 rounded down) = 127.
        {10, 13, {10, 11, 13, 13}},
    };
    for (const Case& c : cases) {
        std::uint8_t source[8] = {c.left, c.left, c.left, 0, c.right, c.right, c.right, 0};
        std::uint8_t out[16];
        ASSERT_EQ(BilinearStretch(out, 4, 1, source, 32, 2, 1), 1);
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(out[x * 4], c.expected[x]) << "pixel " << x;
    }
    std::uint8_t out[16];
    std::uint8_t source[8] = {};
    EXPECT_EQ(BilinearStretch(out, 4, 1, source, 16, 2, 1), 0) << "other bit depths draw nothing";
}

TEST(BilinearStretch, Reads24BitRowsWithTheirPadding)
{
    // 2 × 2 at 24 bits: rows of 6 bytes padded to 8.
    std::uint8_t source[16] = {10, 10, 10, 10, 10, 10, 0xEE, 0xEE, 50, 50, 50, 50, 50, 50, 0xEE, 0xEE};
    std::uint8_t out[2 * 4 * 4];
    ASSERT_EQ(BilinearStretch(out, 2, 4, source, 24, 2, 2), 1);
    EXPECT_EQ(out[0], 10);
    EXPECT_EQ(out[1 * 8], 30) << "half-way between the rows";
    EXPECT_EQ(out[3 * 8], 50);
}

TEST(BilinearStretch, SameSizeReproducesTheSource)
{
    // Every weight is 0 at 1:1, so the filter's output is its source with the fourth byte cleared.
    std::vector<std::uint8_t> source(5 * 3 * 4);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = static_cast<std::uint8_t>(i * 37);
    std::vector<std::uint8_t> same(5 * 3 * 4);
    ASSERT_EQ(BilinearStretch(same.data(), 5, 3, source.data(), 32, 5, 3), 1);
    for (std::size_t i = 0; i < same.size(); ++i)
        EXPECT_EQ(same[i], i % 4 == 3 ? 0 : source[i]) << i;
}

TEST(ApplyMask, SubtractsTheMasksDarkness)
{
    std::uint8_t pixels[8] = {100, 40, 255, 7, 100, 40, 255, 7};
    std::uint8_t mask[8] = {255, 0, 0, 0, 200, 0, 0, 0};
    ApplyMask(pixels, mask, 2);
    EXPECT_EQ(std::vector<std::uint8_t>(pixels, pixels + 8),
              (std::vector<std::uint8_t>{100, 40, 255, 7, 45, 0, 200, 7}));
}

codec::Photo Uniform(int width, int height, int dc)
{
    codec::Photo photo;
    EXPECT_EQ(codec::DecodePhoto(photo, testing::MakeUniformPhoto(width, height, testing::DcBlock(dc))), 1);
    return photo;
}

std::uint32_t PixelAt(std::span<const std::uint8_t> picture, int width, int height, int x, int y)
{
    const std::uint8_t* p = picture.data() + (std::size_t(height - 1 - y) * width + x) * 4;
    return p[0] | (p[1] << 8) | (p[2] << 16);
}

TEST(FrameCompositor, PlacesAndScalesThePhotoInTheFrame)
{
    struct Point
    {
        int x, y;
        bool photo; // Otherwise black.
    };
    struct Row
    {
        const char* name;
        int width, height, dc;
        Rect rect;
        std::vector<Point> points;
    } rows[] = {
        // 533 x 400 around the photo at x = 116, enlarged by 640 / 533: bars of about 139 pixels.
        {"portrait photo gets black bars at the sides",
         300,
         400,
         400,
         {},
         {{100, 240, false},
          {135, 240, false},
          {145, 240, true},
          {320, 240, true},
          {495, 240, true},
          {505, 240, false}}},
        {"larger photo fills the frame",
         1600,
         1200,
         -200,
         {},
         {{0, 0, true}, {639, 0, true}, {0, 479, true}, {639, 479, true}, {320, 240, true}}},
        // 100 rows above the photo: the intermediate is 64 x 148 with the photo in its lowest 48 rows.
        {"rectangle above the photo moves it down",
         64,
         48,
         300,
         {0, -100, 64, 48},
         {{320, 10, false}, {320, 300, false}, {320, 340, true}, {320, 479, true}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        codec::Photo photo = Uniform(row.width, row.height, row.dc);
        const std::uint32_t colour = PixelAt(photo.Bitmap()->Pixels(), row.width, row.height, 0, 0);
        FrameCompositor compositor(640, 480, 640, 480);
        compositor.Open();
        compositor.RenderPhoto(&photo, nullptr, row.rect,
                               const_cast<std::uint8_t*>(compositor.Target().data()));
        for (const Point& point : row.points) {
            EXPECT_EQ(PixelAt(compositor.Target(), 640, 480, point.x, point.y), point.photo ? colour : 0u)
                << point.x << "," << point.y;
        }
    }
}

TEST(FrameCompositor, MaskDarkensSubtractively)
{
    FrameCompositor compositor(640, 480, 640, 480);
    compositor.Open();
    codec::Photo photo = Uniform(64, 48, 500);
    codec::Photo mask = Uniform(16, 16, 0);
    std::uint32_t colour = PixelAt(photo.Bitmap()->Pixels(), 64, 48, 0, 0);
    int m = 255 - static_cast<int>(PixelAt(mask.Bitmap()->Pixels(), 16, 16, 0, 0) & 0xFF);
    ASSERT_GT(m, 0);
    compositor.RenderPhoto(&photo, &mask, {}, const_cast<std::uint8_t*>(compositor.Target().data()));
    std::uint32_t expected = 0;
    for (int k = 0; k < 3; ++k)
        expected |= std::uint32_t(std::max(0, int((colour >> (8 * k)) & 0xFF) - m)) << (8 * k);
    EXPECT_EQ(PixelAt(compositor.Target(), 640, 480, 320, 240), expected);
}

class CountingPresenter : public platform::FramePresenter
{
public:
    void Present(const std::uint8_t*, int, int, int, int) override { ++count; }
    int count = 0;
};

TEST(FrameCompositor, NegativeRowsAndUnopenedPicturesDoNothing)
{
    FrameCompositor compositor(640, 480, 640, 480);
    CountingPresenter window;
    compositor.PresentDisplay(window);
    EXPECT_EQ(window.count, 0) << "nothing to show before Open";
    EXPECT_EQ(compositor.EndTransition(-1), 0);
    records::TextRecord text{};
    EXPECT_EQ(compositor.BeginCaption(-1, nullptr, 0, &text), 0);
    EXPECT_EQ(compositor.EndCaption(-1, &text), 0);
    compositor.Open();
    compositor.PresentDisplay(window);
    EXPECT_EQ(window.count, 1);
}

} // namespace
} // namespace lumenar::playback
