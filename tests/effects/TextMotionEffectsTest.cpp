#include "effects/TextMotionEffects.h"

#include "effects/EffectRegistry.h"
#include "effects/TextEffectFramework.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace lumenar::effects {
namespace {

constexpr int kWidth = 240;
constexpr int kHeight = 100;
constexpr std::uint8_t kGrey = 100;

// The box of pixels that differ from the grey background, and the reddest pixel's red byte.
struct Ink
{
    int left = kWidth, top = kHeight, right = -1, bottom = -1;
    int pixels = 0;
    int maxRed = 0;
    bool operator==(const Ink&) const = default;
};

// "AB" in red, laid out by hand as the layout would at 48 pixels.
struct Caption
{
    records::TextRecord record{};
    std::vector<records::Glyph> glyphs = {{'A', 0, 0, 44, 32, 55}, {'B', 0, 32, 44, 32, 55}};
    std::vector<std::uint8_t> picture = std::vector<std::uint8_t>(kWidth * kHeight * 4, kGrey);

    explicit Caption(int shadow)
    {
        record.x = 80;
        record.y = 20;
        record.font.height = -48;
        record.font.weight = 400;
        std::strcpy(record.font.faceName, "Arial");
        record.colour = 0x0000FF;
        record.lineSpacing = 100;
        record.shadow = shadow;
        record.extentWidth = 64;
        record.extentHeight = 55;
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

    void Frame(int row, int num, int den)
    {
        std::fill(picture.begin(), picture.end(), kGrey);
        EffectRegistry registry;
        registry.RunText(row, EffectInit, Block(0, 100));
        registry.RunText(row, EffectRender, Block(num, den));
        registry.RunText(row, EffectRelease, Block(0, 1));
    }

    Ink Measure() const
    {
        Ink ink;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const std::uint8_t* p =
                    &picture[static_cast<std::size_t>((kHeight - 1 - y) * kWidth + x) * 4];
                if (p[0] == kGrey && p[1] == kGrey && p[2] == kGrey)
                    continue;
                ++ink.pixels;
                ink.maxRed = std::max<int>(ink.maxRed, p[2]);
                ink.left = std::min(ink.left, x);
                ink.right = std::max(ink.right, x);
                ink.top = std::min(ink.top, y);
                ink.bottom = std::max(ink.bottom, y);
            }
        }
        return ink;
    }

    // FNV-1a of the picture's bytes.
    std::uint64_t Hash() const
    {
        std::uint64_t hash = 14695981039346656037ull;
        for (std::uint8_t byte : picture)
            hash = (hash ^ byte) * 1099511628211ull;
        return hash;
    }
};

// Blurred cells: level 0 draws what the sharp glyph draws, stronger levels spread wider and fainter,
// repeated letters share a cell, and what cannot be built is refused rather than drawn wrongly.
TEST(TextEffectFramework, SoftCellsBlurAroundTheSharpGlyph)
{
    Caption sharp(0);
    ASSERT_EQ(BuildTextState(sharp.Block(0, 100)), 1);
    DrawGlyph(*FindTextState(sharp.record.effectState), 40, 60, 'A', 0x0000FF, 255, 0, 0, 65536, 65536, 0);
    const Ink glyph = sharp.Measure();
    FreeTextState(sharp.Block(0, 1));

    struct Row
    {
        const char* name;
        std::vector<std::int32_t> radii;
        int blur, opacity, scale;
        enum class Expect
        {
            Refused,
            Nothing,
            AsSharp,
            Spread
        } expect;
    };
    const Row rows[] = {
        {"no levels", {}, 0, 255, 65536, Row::Expect::Refused},
        {"not from 0", {2, 4}, 0, 255, 65536, Row::Expect::Refused},
        {"not ascending", {0, 4, 4}, 0, 255, 65536, Row::Expect::Refused},
        {"level 0 is the sharp glyph", {0, 3, 8}, 0, 255, 65536, Row::Expect::AsSharp},
        {"past the last level is the last level", {0, 3, 8}, 100000, 255, 65536, Row::Expect::Spread},
        {"between levels", {0, 3, 8}, 384, 255, 65536, Row::Expect::Spread},
        {"opacity 0", {0, 3, 8}, 512, 0, 65536, Row::Expect::Nothing},
        {"scale 0 draws a speck at most", {0, 3, 8}, 0, 255, 0, Row::Expect::Nothing},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Caption caption(0);
        caption.glyphs.push_back(caption.glyphs[0]); // "ABA".
        ASSERT_EQ(BuildTextState(caption.Block(0, 100)), 1);
        TextEffectState& state = *FindTextState(caption.record.effectState);
        const bool built = BuildSoftCells(state, caption.Block(0, 100), row.radii);
        EXPECT_EQ(built, row.expect != Row::Expect::Refused);
        if (built) {
            EXPECT_EQ(state.soft.levels.size(), row.radii.size());
            EXPECT_EQ(state.soft.cellOf, (std::vector<std::int32_t>{0, 1, 0}));
        } else {
            EXPECT_TRUE(state.soft.levels.empty());
        }
        DrawSoftGlyph(state, 40, 60, 0x0000FF, row.opacity, 2, row.blur, row.scale, row.scale, 0);
        const Ink ink = caption.Measure();
        FreeTextState(caption.Block(0, 1));
        switch (row.expect) {
        case Row::Expect::Refused:
            EXPECT_EQ(ink.pixels, 0);
            break;
        case Row::Expect::Nothing:
            EXPECT_LE(ink.pixels, 4);
            break;
        case Row::Expect::AsSharp:
            EXPECT_EQ(ink.left, glyph.left);
            EXPECT_EQ(ink.top, glyph.top);
            EXPECT_EQ(ink.right, glyph.right);
            EXPECT_EQ(ink.bottom, glyph.bottom);
            EXPECT_NEAR(ink.maxRed, glyph.maxRed, 2);
            EXPECT_NEAR(ink.pixels, glyph.pixels, glyph.pixels / 50);
            break;
        case Row::Expect::Spread:
            EXPECT_LT(ink.left, glyph.left - 1);
            EXPECT_LT(ink.top, glyph.top - 1);
            EXPECT_GT(ink.right, glyph.right + 1);
            EXPECT_GT(ink.bottom, glyph.bottom + 1);
            EXPECT_LT(ink.maxRed, glyph.maxRed - 20);
            break;
        }
    }
}

// A few frames of each procedure, with and without a shadow, against FNV-1a hashes of the whole picture,
// as this test printed them with "Arial" resolving to Liberation Sans (fonts-liberation). A changed hash
// means the motion, the drawing or the font changed: look at the frames before updating it.
TEST(TextEffects, GoldenFramesOfTheMotionRows)
{
    struct Row
    {
        int row, num, den, shadow;
        std::uint64_t hash;
    };
    const Row rows[] = {
        {36, 1, 4, 1, 0xf9274b077935691aull}, {37, 1, 2, 0, 0x3bffa381f9815af9ull},
        {38, 1, 4, 1, 0x4a0b972add85f53bull}, {39, 1, 4, 0, 0xbb477420944b8d9full},
        {40, 1, 3, 1, 0xce3241dfccdce6a9ull}, {41, 1, 3, 0, 0x163a798f7c7c7759ull},
        {42, 1, 5, 1, 0x94f64f94a9cd676eull}, {42, 2, 3, 0, 0xa8117f19ac9b3726ull},
        {43, 1, 3, 1, 0x8d3f521a4c22fe9aull}, {44, 1, 3, 0, 0x9e634886f47bf63full},
        {45, 1, 5, 1, 0xf824cbe37d59174eull}, {46, 1, 5, 1, 0x86ac7b0d0941e5fbull},
        {47, 1, 5, 0, 0xccb17670efc8211aull}, {47, 1, 5, 1, 0xa6d920e7ff577622ull},
        {48, 1, 2, 1, 0x5fd681517815488full}, {49, 1, 3, 1, 0x4365ae727aaa6085ull},
        {50, 1, 3, 0, 0xe45a80bf4df4f1bbull}, {51, 1, 3, 1, 0xb037320e94e1c5e4ull},
        {52, 1, 3, 0, 0xc4e4960eee166087ull},
    };
    Caption blank(0);
    const std::uint64_t nothing = blank.Hash();
    EffectRegistry::FixSeed(11);
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << row.row << " at " << row.num << "/" << row.den
                                        << (row.shadow != 0 ? ", shadow" : ""));
        Caption caption(row.shadow);
        caption.Frame(row.row, row.num, row.den);
        EXPECT_NE(caption.Hash(), nothing);
        EXPECT_EQ(caption.Hash(), row.hash) << std::hex << "0x" << caption.Hash();
    }
    EffectRegistry::FixSeed(std::nullopt);
}

} // namespace
} // namespace lumenar::effects
