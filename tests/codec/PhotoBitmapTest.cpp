#include "codec/PhotoBitmap.h"

#include "codec/ColourRows.h"
#include "codec/Photo.h"
#include "tests/support/JpegWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace lumenar::codec {
namespace {

std::uint32_t U32At(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    std::uint32_t v = 0;
    std::memcpy(&v, bytes.data() + offset, 4);
    return v;
}

// Pixel (x, y) counted from the top: blue, green, red, unused.
std::array<int, 4> PixelAt(const PhotoBitmap& bitmap, int x, int y)
{
    const auto p =
        bitmap.Pixels().data() + (static_cast<std::size_t>(bitmap.Height() - 1 - y) * bitmap.Width() + x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

TEST(ConvertToDib, ColoursFollowTheTruncatedTables)
{
    struct Row
    {
        const char* name;
        std::uint8_t y, cb, cr;
        std::array<int, 4> bgrx;
    };
    const Row rows[] = {
        {"white", 255, 128, 128, {255, 255, 255, 0}},
        {"red from full Cr", 0, 128, 255, {0, 0, 178, 0}}, // trunc(127 * 1.402) = 178; green clamps at 0.
        {"blue from full Cb", 0, 255, 128, {225, 0, 0, 0}},
        {"green from low chroma",
         100,
         0,
         0,
         {0, 100 + 44 + 91, 0, 0}}, // trunc(-128 * -0.34414), trunc(-128 * -0.71414).
        {"mid grey", 128, 128, 128, {128, 128, 128, 0}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PhotoBitmap bitmap(1, 1);
        const std::vector<std::uint8_t> y(8, row.y), cb(8, row.cb), cr(8, row.cr);
        ASSERT_EQ(ConvertToDib(bitmap, y, cb, cr, 1, 1), 1);
        EXPECT_EQ(PixelAt(bitmap, 0, 0), row.bgrx);
    }
}

TEST(ConvertToDib, WritesABitmapFileBottomUp)
{
    // Width 20 with 1x1 sampling: luma rows are read 24 bytes apart; picture rows are 80 bytes.
    const int w = 20, h = 3;
    std::vector<std::uint8_t> y(24 * 8), cb(24 * 8, 128), cr(24 * 8, 128);
    for (std::size_t i = 0; i < y.size(); ++i)
        y[i] = static_cast<std::uint8_t>(i);
    PhotoBitmap bitmap(w, h);
    ASSERT_EQ(ConvertToDib(bitmap, y, cb, cr, 1, 1), 1);
    const auto block = bitmap.Block();
    ASSERT_EQ(block.size(), 54u + 80u * 3);
    EXPECT_EQ(block[0], 'B');
    EXPECT_EQ(block[1], 'M');
    // Offset and value of the file size, pixel offset, header size, width, height, bits and image size.
    const std::pair<std::size_t, std::uint32_t> fields[] = {{2, 54 + 80 * 3}, {10, 54}, {14, 40},    {18, 20},
                                                            {22, 3},          {28, 32}, {34, 80 * 3}};
    for (const auto& [offset, value] : fields)
        EXPECT_EQ(U32At(block, offset) & (offset == 28 ? 0xFFFF : 0xFFFFFFFF), value) << "offset " << offset;
    EXPECT_EQ(bitmap.BitCount(), 32);
    EXPECT_EQ(PixelAt(bitmap, 0, 0)[0], 0);
    EXPECT_EQ(PixelAt(bitmap, 19, 0)[0], 19);
    EXPECT_EQ(PixelAt(bitmap, 0, 1)[0], 24);
    EXPECT_EQ(PixelAt(bitmap, 5, 2)[0], 53);
    // The first stored row is the bottom one.
    EXPECT_EQ(bitmap.Pixels()[0], 48);
}

TEST(ConvertToDib, HalfSampledChromaLeadsByHalfASample)
{
    // h = 2, v = 2, width 8: pixels 0..7 take chroma samples 0, 1, 1, 2, 2, 3, 3, 4 of their chroma row;
    // chroma rows are 4 samples (rowStride 8 / 2) and advance every second picture row. Sample 4 of a
    // row is the next row's first; in the last row it would be past the plane, and the plane's last
    // sample is read instead.
    const int w = 8, h = 4;
    std::vector<std::uint8_t> y(8 * 4, 0), cb(4 * 2, 128), cr(4 * 2);
    for (std::size_t i = 0; i < cr.size(); ++i)
        cr[i] = static_cast<std::uint8_t>(128 + 10 * i); // Red = trunc(10 i * 1.402).
    PhotoBitmap bitmap(w, h);
    ASSERT_EQ(ConvertToDib(bitmap, y, cb, cr, 2, 2), 1);
    auto redFromSample = [](int i) { return static_cast<int>(10 * i * 1.402); };
    const int expected[4][8] = {
        {0, 1, 1, 2, 2, 3, 3, 4},
        {0, 1, 1, 2, 2, 3, 3, 4},
        {4, 5, 5, 6, 6, 7, 7, 7},
        {4, 5, 5, 6, 6, 7, 7, 7},
    };
    for (int row = 0; row < h; ++row)
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(PixelAt(bitmap, x, row)[2], redFromSample(expected[row][x])) << x << "," << row;
}

// The whole-row path must give the table look-ups' bytes: every (luma, Cb, Cr) colour term and clamp,
// the half-sample lead, and the pixels left to the tail of each row.
TEST(ConvertToDib, RowPathMatchesTheTables)
{
    struct Planes
    {
        const char* name;
        int width, height, h, v;
        int kind; // 0: every Cb/Cr pair with luma from the position; 1: every luma/Cb pair; 2: random.
    };
    const Planes rows[] = {
        {"all chroma pairs", 256, 256, 1, 1, 0},         {"all luma and Cb", 256, 256, 1, 1, 1},
        {"all chroma pairs, halved", 512, 256, 2, 1, 0}, {"random 4:2:0", 1021, 67, 2, 2, 2},
        {"random 4:4:4, odd width", 33, 9, 1, 1, 2},     {"random 4:2:2, width 17", 17, 5, 2, 1, 2},
        {"random, under 16 wide", 15, 3, 2, 2, 2},       {"random, h = 4", 64, 8, 4, 1, 2},
    };
    std::mt19937 random(5);
    for (const Planes& row : rows) {
        SCOPED_TRACE(row.name);
        const std::size_t stride = (static_cast<std::size_t>(row.width) + 7) & ~std::size_t{7};
        const std::size_t chromaStride = stride / static_cast<std::size_t>(row.h);
        const std::size_t chromaRows = (static_cast<std::size_t>(row.height) + row.v - 1) / row.v;
        std::vector<std::uint8_t> y(stride * row.height), cb(chromaStride * chromaRows), cr(cb.size());
        for (std::size_t i = 0; i < y.size(); ++i)
            y[i] = static_cast<std::uint8_t>(row.kind == 1   ? i / stride
                                             : row.kind == 0 ? i * 7 + i / stride
                                                             : random());
        for (std::size_t i = 0; i < cb.size(); ++i) {
            cb[i] = static_cast<std::uint8_t>(row.kind == 2 ? random() : i % chromaStride);
            cr[i] = static_cast<std::uint8_t>(row.kind == 0   ? i / chromaStride
                                              : row.kind == 1 ? i * 3
                                                              : random());
        }
        PhotoBitmap viaTables(row.width, row.height);
        ASSERT_EQ(ConvertToDibWith(viaTables, y, cb, cr, row.h, row.v, ColourPath::Portable), 1);
        for (const ColourPath path : {ColourPath::Auto, ColourPath::Sse2}) {
            PhotoBitmap viaRows(row.width, row.height);
            ASSERT_EQ(ConvertToDibWith(viaRows, y, cb, cr, row.h, row.v, path), 1);
            const auto a = viaRows.Block(), b = viaTables.Block();
            const auto mismatch = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
            EXPECT_TRUE(mismatch.first == a.end())
                << (path == ColourPath::Auto ? "widest rows" : "SSE2 rows") << ": first difference at byte "
                << (mismatch.first - a.begin());
        }
    }
}

TEST(ConvertToDib, PictureBeyondItsMemoryIsEmptyAndReported)
{
    PhotoBitmap bitmap(1000, 1000, 1000);
    const std::vector<std::uint8_t> plane(1000 * 1000, 0);
    EXPECT_EQ(ConvertToDib(bitmap, plane, plane, plane, 1, 1), 0);
    EXPECT_EQ(bitmap.BitCount(), 0);
    EXPECT_TRUE(bitmap.Block().empty());
    // Through DecodePhoto the photo still counts as decoded, and the report says what the player shows.
    Photo photo;
    DecodeReport report;
    ASSERT_EQ(DecodePhoto(photo, testing::MakeUniformPhoto(64, 64, testing::ZigzagBlock(64, 0)),
                          {.maxPictureBytes = 1000}, &report),
              1);
    EXPECT_EQ(photo.Bitmap()->BitCount(), 0);
    EXPECT_EQ(report.notices, std::vector<std::string>{"Unable to allocate DIB memory"});
}

} // namespace
} // namespace lumenar::codec
