#include "effects/TextRevealEffects.h"

#include "effects/EffectRegistry.h"
#include "effects/TextEffectFramework.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace lumenar::effects {
namespace {

constexpr int kWidth = 200;
constexpr int kHeight = 100;
constexpr std::uint8_t kGrey = 90;

// "Ab" over "c", laid out by hand as the layout would at 32 pixels, white with a shadow.
struct Caption
{
    records::TextRecord record{};
    std::vector<records::Glyph> glyphs = {
        {'A', 0, 0, 29, 21, 37}, {'b', 0, 21, 29, 18, 37}, {'c', 1, 8, 66, 16, 37}};
    std::vector<std::uint8_t> picture = std::vector<std::uint8_t>(kWidth * kHeight * 4, kGrey);

    Caption()
    {
        record.x = 70;
        record.y = 15;
        record.font.height = -32;
        record.font.weight = 400;
        std::strcpy(record.font.faceName, "Arial");
        record.colour = 0xFFFFFF;
        record.lineSpacing = 100;
        record.alignment = 1;
        record.shadow = 1;
        record.extentWidth = 39;
        record.extentHeight = 74;
    }

    TextEffectParams Block(int num, int den)
    {
        TextEffectParams block{};
        block.dcBits = picture.data();
        block.text = &record;
        block.glyphs = glyphs.data();
        block.glyphCount = static_cast<int>(glyphs.size());
        block.width = kWidth;
        block.height = kHeight;
        block.progressNum = num;
        block.progressDen = den;
        return block;
    }

    std::uint64_t Hash() const
    {
        std::uint64_t h = 0xcbf29ce484222325ull; // FNV-1a
        for (std::uint8_t byte : picture)
            h = (h ^ byte) * 0x100000001b3ull;
        return h;
    }
};

// Frames of the reveal rows, kept so that a change to a motion or to the glyph drawing shows. Made by
// this test itself (it prints the hash it found) on the two-line caption above, with the registry's
// seed fixed to 11.
TEST(TextEffects, GoldenFramesOfTheRevealRows)
{
    struct Row
    {
        int row, num, den;
        std::uint64_t hash;
    };
    const Row rows[] = {
        {5, 3, 10, 0xa50651396c96dd55},  {6, 6, 10, 0x90c285e42fedf89b},  {7, 5, 10, 0x8f2efac72afe9667},
        {8, 5, 10, 0x584b9f48faa863d},   {13, 5, 10, 0x5cb9334326cd9417}, {14, 4, 10, 0x18bf601954c86a53},
        {23, 5, 10, 0x9ca8d8d81601a43f}, {24, 5, 10, 0x80953fefd84c4d83}, {25, 4, 10, 0xcdd3d18821b932e6},
        {26, 3, 10, 0xe8a3a40abf4e58ec}, {27, 3, 10, 0xb6659568b53dd969}, {28, 5, 10, 0xd39cdd5aab52acc7},
        {32, 4, 10, 0x5e6de6f48bf11b88}, {35, 4, 10, 0xd5ccdccba3fac34e},
    };
    EffectRegistry::FixSeed(11);
    auto frame = [](int row, int num, int den) {
        Caption caption;
        EffectRegistry registry;
        registry.RunText(row, EffectInit, caption.Block(0, 100));
        registry.RunText(row, EffectRender, caption.Block(num, den));
        registry.RunText(row, EffectRelease, caption.Block(0, 1));
        return caption.Hash();
    };
    const std::uint64_t blank = Caption().Hash();
    const std::uint64_t rest = frame(4, 1, 1);
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << row.row << " at " << row.num << "/" << row.den);
        const std::uint64_t hash = frame(row.row, row.num, row.den);
        // Mid-way, every one of them shows something other than the caption at rest.
        EXPECT_NE(hash, blank);
        EXPECT_NE(hash, rest);
        EXPECT_EQ(hash, row.hash) << std::hex << "0x" << hash;
    }
    EffectRegistry::FixSeed(std::nullopt);
}

// A glyph cut to a band changes exactly the pixels inside it that the whole glyph changes, whatever its
// turn and size, and nothing outside it (nor outside the picture).
TEST(TextEffectFramework, BandsCutTheGlyphAndItsShadowExactly)
{
    struct Row
    {
        const char* name;
        PictureBand band;
        int scale, angle;
    };
    const Row rows[] = {
        {"columns through the middle", {80, -50, 95, 500}, 65536, 0},
        {"rows through the middle", {-10, 40, 400, 52}, 65536, 0},
        {"a box, turned and enlarged", {75, 30, 100, 60}, 98304, 300},
        {"a box, mirrored", {75, 30, 100, 60}, -65536, 0},
        {"larger than the picture", {-1000, -1000, 1000, 1000}, 65536, 450},
        {"empty", {90, 40, 90, 60}, 65536, 0},
        {"upside down", {100, 60, 80, 40}, 65536, 0},
        {"beyond the picture", {kWidth, 0, kWidth + 50, kHeight}, 65536, 0},
    };
    const std::uint8_t kGreyPixel[3] = {kGrey, kGrey, kGrey};
    Caption caption;
    ASSERT_EQ(BuildTextState(caption.Block(0, 100)), 1);
    TextEffectState& state = *FindTextState(caption.record.effectState);
    auto draw = [&](const Row& row, const PictureBand* band) {
        std::fill(caption.picture.begin(), caption.picture.end(), kGrey);
        DrawGlyph(state, 80, 50, 'A', 0x00FF00, 255, 1, 0, row.scale, row.scale, row.angle, band);
        return caption.picture;
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::vector<std::uint8_t> whole = draw(row, nullptr);
        const std::vector<std::uint8_t> cut = draw(row, &row.band);
        int inside = 0;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const std::size_t at = (static_cast<std::size_t>(kHeight - 1 - y) * kWidth + x) * 4;
                const bool in =
                    x >= row.band.left && x < row.band.right && y >= row.band.top && y < row.band.bottom;
                const std::uint8_t* expected = in ? &whole[at] : kGreyPixel;
                if (in && whole[at] != kGrey)
                    ++inside;
                ASSERT_TRUE(std::equal(expected, expected + 3, &cut[at])) << "pixel " << x << ", " << y;
            }
        }
        // The cut bands that cross the glyph really draw some of it.
        if (row.band.right - row.band.left >= 15 && row.band.left < kWidth) {
            EXPECT_GT(inside, 20);
        }
    }
    FreeTextState(caption.Block(0, 1));
}

} // namespace
} // namespace lumenar::effects
