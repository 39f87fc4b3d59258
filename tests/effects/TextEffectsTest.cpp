#include "effects/TextEffectFramework.h"

#include "effects/EffectRegistry.h"
#include "effects/TextEffects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace lumenar::effects {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 120;
constexpr std::uint8_t kGrey = 100;

// Where a caption's ink is: the box of pixels that differ from the grey background, and how many do.
struct Ink
{
    int left = kWidth, top = kHeight, right = -1, bottom = -1;
    int pixels = 0;
    int darker = 0;                      // Pixels darker than the background in every channel (shadow).
    int lighter = 0;                     // Pixels lighter than the background in every channel.
    int red = 0;                         // Pixels that moved towards pure red.
    int redRight = -1, redBottom = -1;   // Right and bottom ends of the text-coloured pixels,
    int darkRight = -1, darkBottom = -1; // and of the shadow.
    int maxRed = 0;                      // The red byte of the reddest pixel, and that pixel's blue byte.
    int blueOfMaxRed = 0;
    bool operator==(const Ink&) const = default;
};

// Two glyphs laid out by hand as the layout would for "AB" at 48 pixels.
struct Caption
{
    records::TextRecord record{};
    std::vector<records::Glyph> glyphs = {{'A', 0, 0, 44, 32, 55}, {'B', 0, 32, 44, 32, 55}};
    std::vector<std::uint8_t> picture = std::vector<std::uint8_t>(kWidth * kHeight * 4, kGrey);

    explicit Caption(int shadow)
    {
        record.x = 120;
        record.y = 30;
        record.font.height = -48;
        record.font.weight = 400;
        std::strcpy(record.font.faceName, "Arial");
        record.colour = 0x0000FF; // Red.
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

    // One frame of text row `row` at num/den on a fresh grey picture, through the registry.
    Ink Frame(int row, int num, int den)
    {
        std::fill(picture.begin(), picture.end(), kGrey);
        EffectRegistry registry;
        registry.RunText(row, EffectInit, Block(0, 100));
        registry.RunText(row, EffectRender, Block(num, den));
        registry.RunText(row, EffectRelease, Block(0, 1));
        return Measure();
    }

    Ink Measure() const
    {
        Ink ink;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const std::uint8_t* p = &picture[((kHeight - 1 - y) * kWidth + x) * 4];
                if (p[0] == kGrey && p[1] == kGrey && p[2] == kGrey)
                    continue;
                ++ink.pixels;
                if (p[0] < kGrey && p[1] < kGrey && p[2] < kGrey) {
                    ++ink.darker;
                    ink.darkRight = std::max(ink.darkRight, x);
                    ink.darkBottom = std::max(ink.darkBottom, y);
                }
                if (p[0] > kGrey && p[1] > kGrey && p[2] > kGrey)
                    ++ink.lighter;
                if (p[2] > kGrey && p[0] < kGrey && p[1] < kGrey) {
                    ++ink.red;
                    ink.redRight = std::max(ink.redRight, x);
                    ink.redBottom = std::max(ink.redBottom, y);
                }
                if (p[2] > ink.maxRed) {
                    ink.maxRed = p[2];
                    ink.blueOfMaxRed = p[0];
                }
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

TEST(TextEffectTables, CornerValues)
{
    const SinCos& table = SinCosTable();
    // Angle, sine, cosine.
    const int corners[][3] = {
        {0, 0, 65536}, {450, 46340, 46340}, {900, 65535, 0}, {1800, 0, -65535}, {2700, -65535, 0}};
    for (const auto& [angle, sine, cosine] : corners) {
        EXPECT_EQ(table.sine[angle], sine) << angle;
        EXPECT_EQ(table.cosine[angle], cosine) << angle;
    }
    for (auto [in, out] :
         {std::pair{-256, 0}, {-1, 0}, {0, 0}, {128, 128}, {255, 255}, {256, 255}, {511, 255}})
        EXPECT_EQ(ClampTable()[in], out) << in;
    for (auto [step, level] : {std::pair{0, 0}, {1, 5}, {25, 130}, {49, 255}})
        EXPECT_EQ(FadeRamp()[step], level) << step;
}

TEST(TextEffectFramework, AnglesAreBroughtIntoOneTurn)
{
    const std::pair<int, int> rows[] = {{-1, 3599},   {7200, 0},     {3600, 0},         {-3600, 0},
                                        {3599, 3599}, {-7201, 3599}, {INT32_MIN, 2752}, {INT32_MAX, 847}};
    for (auto [in, out] : rows)
        EXPECT_EQ(NormaliseAngle(in), out) << in;
}

TEST(TextEffectFramework, BlendArithmeticAtTheCorners)
{
    struct Row
    {
        const char* name;
        int old, colour, ink, alpha, expected;
    };
    const Row rows[] = {
        {"opacity 0 changes nothing", 255, 0, 4, 0, 255},
        {"full white under black turns 3", 255, 0, 4, 63, 3},
        {"full black under white moves 252/256", 0, 255, 4, 63, 251},
        {"one sample of four", 255, 0, 1, 63, 192},
        {"a negative product rounds down", 10, 9, 1, 1, 9},
        {"a small positive product rounds down to no change", 9, 10, 1, 1, 9},
        {"the colour itself changes nothing", 77, 77, 4, 63, 77},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(BlendInk(static_cast<std::uint8_t>(row.old), static_cast<std::uint8_t>(row.colour), row.ink,
                           row.alpha),
                  row.expected);
    }
}

// The run of a pixel row inside a box edge pair, found from the row's start and step, must be exactly the
// steps that testing every pixel would keep, or a turned, scaled, mirrored or clipped glyph would lose or
// gain a pixel at its edges (or read outside its cell).
TEST(TextEffectFramework, RowRunsAreTheStepsATestAtEveryPixelKeeps)
{
    struct Row
    {
        const char* name;
        std::int32_t scale;      // 16.16, as DrawGlyph takes it.
        std::int64_t first, end; // The steps left by the other axis (or the whole row).
    };
    const Row rows[] = {
        {"own size", 65536, 0, 160},
        {"twice the size", 131072, 0, 320},
        {"a fifth of the size", 13107, 0, 40},
        {"mirrored", -65536, 0, 160},
        {"mirrored and enlarged", -98304, 0, 240},
        {"narrowed by the other axis", 65536, 37, 71},
        {"tiny", 8, 0, 8},
    };
    const SinCos& table = SinCosTable();
    const std::int64_t low = std::int64_t{12} << 16, high = std::int64_t{75} << 16;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::int64_t half = row.scale / 2;
        const std::int64_t samplesPerPixel = (std::int64_t{1} << 32) / (std::llabs(half) < 4 ? 4 : half);
        for (int angle = 0; angle < 3600; angle += 7) {
            for (const auto& trig : {table.cosine, table.sine}) {
                const std::int64_t step = (trig[static_cast<std::size_t>(angle)] * samplesPerPixel) >> 16;
                // Starts inside, on and around both edges, and far outside (a glyph clipped at the
                // picture's edge steps from beyond it).
                for (const std::int64_t start :
                     {low - 1, low, high - 1, high, std::int64_t{40} << 16, (std::int64_t{40} << 16) + 0x8000,
                      -(std::int64_t{300} << 16) + 12345, (std::int64_t{400} << 16) - 777}) {
                    std::int64_t first = row.first, end = row.end;
                    StepsWithin(start, step, step != 0 ? 1.0 / static_cast<double>(step) : 0.0, low, high,
                                first, end);
                    std::int64_t expectFirst = row.end, expectEnd = row.end;
                    for (std::int64_t k = row.first; k < row.end; ++k) {
                        const std::int64_t at = start + k * step;
                        if (at >= low && at < high) {
                            expectFirst = std::min(expectFirst, k);
                            expectEnd = k + 1;
                        }
                    }
                    if (expectFirst >= expectEnd) {
                        EXPECT_GE(first, end) << "angle " << angle << " start " << start << " step " << step;
                        continue;
                    }
                    ASSERT_EQ(first, expectFirst)
                        << "angle " << angle << " start " << start << " step " << step;
                    ASSERT_EQ(end, expectEnd) << "angle " << angle << " start " << start << " step " << step;
                }
            }
        }
    }
}

TEST(TextEffectFramework, SheetsAndShadowFollowTheRecord)
{
    for (int shadow : {0, 1}) {
        SCOPED_TRACE(shadow);
        Caption caption(shadow);
        const std::size_t before = LiveTextStates();
        ASSERT_EQ(BuildTextState(caption.Block(0, 100)), 1);
        TextEffectState* state = FindTextState(caption.record.effectState);
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(LiveTextStates(), before + 1);
        EXPECT_GE(state->glyphCellWidth, 2 * state->metrics.maxCharWidth);
        // Metrics are kept at the caption's size: about 48 pixels of em.
        EXPECT_GT(state->metrics.height, 48);
        EXPECT_LT(state->metrics.height, 64);
        // Each glyph cell has ink; the shadow sheet is empty without a shadow.
        const std::size_t cellBytes =
            static_cast<std::size_t>(state->glyphCellWidth) * state->glyphCellHeight;
        for (std::size_t i = 0; i < 2; ++i) {
            const auto cell = state->glyphBits.begin() + static_cast<std::ptrdiff_t>(i * cellBytes);
            EXPECT_GT(std::count(cell, cell + static_cast<std::ptrdiff_t>(cellBytes), 0), 100) << i;
        }
        const auto shadowInk =
            std::count_if(state->shadowBits.begin(), state->shadowBits.end(), [](auto v) { return v != 0; });
        EXPECT_EQ(shadowInk != 0, shadow != 0);

        FreeTextState(caption.Block(0, 1));
        EXPECT_EQ(caption.record.effectState, 0u);
        EXPECT_EQ(LiveTextStates(), before);
    }
}

// Cells copied from a repeated letter or from the cache shared by captions of one font must be the
// cells drawn anew, with and without shadows, whichever kind of caption filled the cache first.
TEST(TextEffectFramework, ReusedCellsAreTheCellsDrawnAnew)
{
    auto sheets = [](int shadow) {
        Caption caption(shadow);
        caption.glyphs.push_back(caption.glyphs[0]); // "ABA".
        EXPECT_EQ(BuildTextState(caption.Block(0, 100)), 1);
        const TextEffectState* state = FindTextState(caption.record.effectState);
        std::vector<std::uint8_t> bytes = state->glyphBits;
        bytes.insert(bytes.end(), state->shadowBits.begin(), state->shadowBits.end());
        const std::size_t cell = static_cast<std::size_t>(state->glyphCellWidth) * state->glyphCellHeight;
        EXPECT_TRUE(std::equal(state->glyphBits.begin(), state->glyphBits.begin() + cell,
                               state->glyphBits.begin() + 2 * cell));
        FreeTextState(caption.Block(0, 1));
        return bytes;
    };
    ForgetRenderedGlyphs();
    const auto plain = sheets(0);
    const auto shadowedAfterPlain = sheets(1);
    ForgetRenderedGlyphs();
    const auto shadowed = sheets(1);
    EXPECT_EQ(shadowedAfterPlain, shadowed);
    EXPECT_EQ(sheets(0), plain);
    EXPECT_EQ(sheets(1), shadowed);
}

TEST(TextEffectFramework, ReleasingWithoutAStateDoesNothing)
{
    Caption caption(1);
    const std::size_t before = LiveTextStates();
    TextEffectParams garbage{};
    std::memset(&garbage, 0xA5, sizeof garbage); // Only `text` may be read.
    garbage.text = &caption.record;
    for (std::uint32_t word : {0u, 0x00403020u}) {
        caption.record.effectState = word;
        EXPECT_EQ(TextShowAtHalf(EffectRelease, &garbage), 0);
        EXPECT_EQ(LiveTextStates(), before);
    }
    garbage.text = nullptr;
    EXPECT_EQ(TextFlyIn(EffectRelease, &garbage), 0);
    // A render before any init draws nothing.
    caption.record.effectState = 0;
    TextEffectParams block = caption.Block(1, 1);
    EXPECT_EQ(TextShowAtHalf(EffectRender, &block), 0);
    EXPECT_EQ(caption.Measure().pixels, 0);
}

TEST(TextEffectFramework, DrawGlyphInkShadowAndAngles)
{
    struct Row
    {
        const char* name;
        int shadow, opacity, angle;
    };
    const Row rows[] = {{"opaque with shadow", 1, 255, 0},
                        {"opaque, no shadow", 0, 255, 0},
                        {"invisible", 1, 0, 0},
                        {"turned a full turn", 1, 255, 3600},
                        {"turned half a turn", 1, 255, 1800},
                        {"turned by minus one", 0, 255, -1}};
    Ink upright;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Caption caption(row.shadow);
        // An underscore: a bar below the baseline, so turning it shows.
        caption.glyphs[0].code = '_';
        ASSERT_EQ(BuildTextState(caption.Block(0, 100)), 1);
        TextEffectState& state = *FindTextState(caption.record.effectState);
        EXPECT_EQ(DrawGlyph(state, 100, 70, '_', caption.record.colour, row.opacity, row.shadow, 0, 65536,
                            65536, row.angle),
                  1);
        const Ink ink = caption.Measure();
        FreeTextState(caption.Block(0, 1));
        if (row.opacity == 0) {
            EXPECT_EQ(ink.pixels, 0);
            continue;
        }
        EXPECT_GT(ink.red, 40);
        EXPECT_EQ(ink.darker != 0, row.shadow != 0);
        if (row.shadow == 0 && row.angle == 0) {
            // The bar lies under the baseline at y 70, within the glyph's cell from x 100.
            EXPECT_GE(ink.top, 71);
            EXPECT_LE(ink.bottom, 80);
            EXPECT_GE(ink.left, 99);
            EXPECT_LE(ink.right, 100 + 32);
            // Fully covered pixels move 252/256 of the way from grey 100: red 252, blue 1.
            EXPECT_EQ(ink.maxRed, 252);
            EXPECT_EQ(ink.blueOfMaxRed, 1);
        }
        if (row.angle % 3600 == 0 && row.shadow != 0) {
            // The shadow falls below and right of the glyph (by 48 / 36 + 3 = 4 pixels, softened).
            EXPECT_GE(ink.darkBottom, ink.redBottom + 3);
            EXPECT_GE(ink.darkRight, ink.redRight + 3);
            if (row.angle == 0)
                upright = ink;
            else
                EXPECT_EQ(ink, upright);
        }
        if (row.angle == 1800) {
            // Upside down about the cell's centre: the bar is now above the baseline.
            EXPECT_LT(ink.bottom, 60);
        }
        if (row.angle == -1) {
            // A tenth of a degree: still the bar under the baseline.
            EXPECT_GE(ink.top, 70);
        }
    }
}

TEST(TextEffectFramework, GlyphsOutsideThePictureAndTinyScalesAreSafe)
{
    Caption caption(1);
    ASSERT_EQ(BuildTextState(caption.Block(0, 100)), 1);
    TextEffectState& state = *FindTextState(caption.record.effectState);
    // x, y, scale x, scale y, glyph index.
    const int rows[][5] = {{INT32_MAX, INT32_MIN, 65536, 65536, 0},
                           {-5000, 50, 65536, 65536, 1},
                           {100, 70, 0, 0, 0},
                           {100, 70, -65536, 65536, 1},
                           {100, 70, INT32_MAX, 65536, 0},
                           {100, 70, 65536, 65536, 2},
                           {100, 70, 65536, 65536, -1}};
    for (const auto& row : rows)
        EXPECT_EQ(DrawGlyph(state, row[0], row[1], 'A', 0xFFFFFF, 255, 1, row[4], row[2], row[3], 0), 1);
    FreeTextState(caption.Block(0, 1));
}

// On the way, a row's ink is where its motion says.
TEST(TextEffects, MotionSeenThroughTheInk)
{
    Caption reference(1);
    const Ink place = reference.Frame(4, 1, 1);
    ASSERT_GT(place.red, 300);

    enum class Where
    {
        Nothing,
        Place,
        LeftOf,
        RightOf,
        Above,
        Below,
        Fainter,
        Shorter,  // Less tall than at its place.
        Narrower, // Less wide.
        Taller,   // Taller than at its place.
        Spread,   // Reaching past its place's left and top edges (a blur, a halo).
        Moved,    // Somewhere else than its place.
        Sparkles, // Light drawn over the background.
        Wider     // Wider than at its place.
    };
    struct Row
    {
        const char* name;
        int row, num, den;
        Where where;
    };
    const Row rows[] = {
        {"show at half: nothing just before half", 4, 1499, 3000, Where::Nothing},
        {"show at half: whole at half", 4, 1500, 3000, Where::Place},
        {"fly-in from the left", 22, 1, 2, Where::LeftOf},
        {"fly-in from the right", 21, 1, 2, Where::RightOf},
        {"fly-in from the top", 20, 1, 2, Where::Above},
        {"fly-in from the bottom", 19, 1, 2, Where::Below},
        {"stream from the left", 12, 1, 4, Where::LeftOf},
        {"stream from the right", 11, 1, 4, Where::RightOf},
        {"stream from the top", 10, 1, 4, Where::Above},
        {"stream from the bottom", 9, 1, 4, Where::Below},
        {"scatter before the first start", 15, 0, 1, Where::Nothing},
        {"scatter from the left", 18, 1, 10, Where::LeftOf},
        {"grow at the start", 29, 0, 1, Where::Nothing},
        {"fade sweep early is fainter", 0, 1, 5, Where::Fainter},
        {"letters fade in: fainter early", 5, 1, 5, Where::Fainter},
        {"letters fade in slowly: still faint at half", 6, 1, 2, Where::Fainter},
        {"letters fade in randomly: fainter early", 7, 1, 10, Where::Fainter},
        {"letters fade in in turn: the first alone", 8, 1, 4, Where::Narrower},
        {"typewriter: the first letter alone", 13, 3, 10, Where::Narrower},
        {"drop: falling from above", 14, 27, 100, Where::Above},
        {"open from the sides: a band of columns", 23, 3, 10, Where::Narrower},
        {"open from top and bottom: a band of rows", 24, 2, 10, Where::Shorter},
        {"spin in: fainter early", 25, 1, 10, Where::Fainter},
        {"zoom in: larger than the caption", 26, 1, 10, Where::Wider},
        {"zoom out: smaller than the caption", 27, 1, 10, Where::Narrower},
        {"bounce: in the air", 28, 1, 5, Where::Above},
        {"flip: edge on", 32, 24, 100, Where::Narrower},
        {"wave: rising from below", 35, 17, 100, Where::Below},
        {"unfold: squeezed upright", 36, 1, 5, Where::Shorter},
        {"unfold sideways: squeezed across", 37, 1, 5, Where::Narrower},
        {"rise in: from below", 38, 1, 5, Where::Below},
        {"fall in: from above", 39, 1, 5, Where::Above},
        {"slide in left: from the right", 40, 1, 5, Where::RightOf},
        {"slide in right: from the left", 41, 1, 5, Where::LeftOf},
        {"blur in: blurred", 42, 1, 10, Where::Spread},
        {"twist in: from small", 43, 1, 5, Where::Narrower},
        {"twist out: from large", 44, 1, 5, Where::Taller},
        {"pop: overshoots its size", 45, 84, 100, Where::Taller},
        {"shake: off its place", 46, 1, 10, Where::Moved},
        {"glow: a halo around the glyphs", 47, 1, 5, Where::Spread},
        {"sparkle: a star of light", 48, 1, 10, Where::Sparkles},
        {"roll in from the right", 49, 1, 4, Where::RightOf},
        {"roll in from the left", 50, 1, 4, Where::LeftOf},
        {"swing in from the right: swung out to the right", 51, 1, 20, Where::RightOf},
        {"swing in from the left: swung out to the left", 52, 1, 20, Where::LeftOf},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Caption caption(1);
        const Ink ink = caption.Frame(row.row, row.num, row.den);
        // Every row but the empty ones draws something.
        EXPECT_EQ(ink.pixels > 0, row.where != Where::Nothing);
        switch (row.where) {
        case Where::Nothing:
            break;
        case Where::Place:
            EXPECT_EQ(ink, place);
            break;
        case Where::LeftOf:
            EXPECT_LT(ink.right, place.right);
            break;
        case Where::RightOf:
            EXPECT_GT(ink.left, place.left);
            break;
        case Where::Above:
            EXPECT_LT(ink.bottom, place.bottom);
            break;
        case Where::Below:
            EXPECT_GT(ink.top, place.top);
            break;
        case Where::Fainter:
            EXPECT_LT(ink.maxRed, place.maxRed - 50);
            break;
        case Where::Shorter:
            EXPECT_LT(ink.bottom - ink.top, place.bottom - place.top - 4);
            break;
        case Where::Narrower:
            EXPECT_LT(ink.right - ink.left, place.right - place.left - 4);
            break;
        case Where::Taller:
            EXPECT_GT(ink.bottom - ink.top, place.bottom - place.top + 4);
            break;
        case Where::Spread:
            EXPECT_LT(ink.left, place.left - 1);
            EXPECT_LT(ink.top, place.top - 1);
            break;
        case Where::Moved:
            EXPECT_NE(ink, place);
            break;
        case Where::Sparkles:
            EXPECT_GT(ink.lighter, 10);
            EXPECT_EQ(place.lighter, 0);
            break;
        case Where::Wider:
            EXPECT_GT(ink.right - ink.left, place.right - place.left + 4);
            break;
        }
    }
}

// The captions every built row must handle: shadow on and off, a single glyph, a long right-aligned
// caption of several lines, and one that runs off the picture's corner.
Caption Shape(int shape)
{
    Caption caption(shape == 1 ? 0 : 1);
    switch (shape) {
    case 2:
        caption.glyphs.resize(1);
        caption.record.extentWidth = 32;
        break;
    case 3: { // 255 glyphs on 5 lines of 51, right-aligned (shorter last line), 12-pixel font.
        caption.record.x = 6;
        caption.record.y = 16;
        caption.record.font.height = -12;
        caption.record.alignment = 2;
        caption.glyphs.clear();
        for (int i = 0; i < 255; ++i) {
            const int line = i / 51;
            const int column = i % 51;
            const int count = line == 4 ? 255 - 4 * 51 : 51;
            caption.glyphs.push_back({static_cast<std::uint16_t>('A' + i % 26),
                                      static_cast<std::uint16_t>(line), (51 - count + column) * 6,
                                      11 + line * 14, 6, 14});
        }
        caption.record.extentWidth = 306;
        caption.record.extentHeight = 70;
        break;
    }
    case 4:
        caption.record.x = 290;
        caption.record.y = 90;
        break;
    default:
        break;
    }
    return caption;
}

// Every built row, on every shape: something shows before the end, the end is exactly what row 4 leaves,
// and the same seed gives the same bytes. (ASan watches that nothing is drawn outside the picture.)
TEST(TextEffects, EveryBuiltRowFromStartToEnd)
{
    constexpr int kShapes = 5;
    std::vector<std::vector<std::uint8_t>> ends;
    for (int shape = 0; shape < kShapes; ++shape) {
        Caption caption = Shape(shape);
        caption.Frame(4, 1, 1);
        ends.push_back(caption.picture);
    }
    for (int row = 0; row < kTextEffectCount - 1; ++row) {
        if (TextEffectTable()[row].built != Built::Yes)
            continue;
        for (int shape = 0; shape < kShapes; ++shape) {
            SCOPED_TRACE(testing::Message() << "row " << row << ", shape " << shape);
            Caption caption = Shape(shape);
            // Every registry reseeds the generator from the clock unless its seed is fixed.
            EffectRegistry::FixSeed(5);
            caption.Frame(row, 3000, 3000);
            EXPECT_TRUE(caption.picture == ends[shape]);
            int drawn = 0;
            for (int percent : {30, 60, 90})
                drawn += caption.Frame(row, percent, 100).pixels;
            EXPECT_GT(drawn, 0);
            EffectRegistry::FixSeed(5);
            caption.Frame(row, 2, 5);
            const std::vector<std::uint8_t> first = caption.picture;
            EffectRegistry::FixSeed(5);
            caption.Frame(row, 2, 5);
            EXPECT_TRUE(caption.picture == first);
        }
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
    Caption caption(1);
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

// Frames of the rows that each draw their own way, with and without a shadow, against FNV-1a hashes of the
// whole picture, as this test printed them with "Arial" resolving to Liberation Sans (fonts-liberation)
// and the registry's seed fixed. A changed hash means the motion, the drawing or the font changed: look at
// the frames before updating it.
TEST(TextEffects, GoldenFrames)
{
    struct Row
    {
        int row, num, den, shadow;
        std::uint64_t hash;
    };
    const Row rows[] = {{5, 3, 10, 1, 0x19457369a2250b26},  {6, 6, 10, 1, 0x96b415a94917b376},
                        {7, 5, 10, 1, 0xb9d21ba2c86d15a9},  {8, 5, 10, 1, 0x41ec810f6f7ca8f7},
                        {13, 5, 10, 1, 0x9753ae410a622df1}, {14, 4, 10, 1, 0x7b20610301011353},
                        {23, 5, 10, 1, 0x345040423e4d0942}, {24, 5, 10, 1, 0x8572862094f2fd9b},
                        {25, 4, 10, 1, 0x9d31aac76f679027}, {26, 3, 10, 1, 0xcac978a756b2c69f},
                        {27, 3, 10, 1, 0xfdb7e6408fbe1f5e}, {28, 5, 10, 1, 0xf9a7495bea23ab62},
                        {32, 4, 10, 1, 0xef7feab6142d14ed}, {35, 4, 10, 1, 0x2c8f8606c1c63865},
                        {36, 1, 4, 1, 0x4baded4a6a37005f},  {37, 1, 2, 0, 0x731d45942bc1941d},
                        {38, 1, 4, 1, 0x999031afe53bf33d},  {39, 1, 4, 0, 0x70705a2cb4305a95},
                        {40, 1, 3, 1, 0xa22898b284abcc67},  {41, 1, 3, 0, 0xf3ca5739f7d84e9},
                        {42, 1, 5, 1, 0xede44d12f9c458f3},  {42, 2, 3, 0, 0x593f81b0ce865fd8},
                        {43, 1, 3, 1, 0x67e2399983b59196},  {44, 1, 3, 0, 0xa7e675668970df0a},
                        {45, 1, 5, 1, 0x424073e5745e5dc},   {46, 1, 5, 1, 0xae6b4d1632b609c2},
                        {47, 1, 5, 0, 0x348d414c28a5286},   {47, 1, 5, 1, 0x93800539f413eff0},
                        {48, 1, 2, 1, 0x45760624cf7665de},  {49, 1, 3, 1, 0xd47551685f86a6af},
                        {50, 1, 3, 0, 0xda86c7c0a588ba29},  {51, 1, 3, 1, 0xa8db51c201cb41d4},
                        {52, 1, 3, 0, 0xbd19a686d1481f13}};
    const std::uint64_t blank = Caption(0).Hash();
    EffectRegistry::FixSeed(11);
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << row.row << " at " << row.num << "/" << row.den
                                        << (row.shadow != 0 ? ", shadow" : ""));
        Caption caption = Shape(3); // Five lines: mid-way, every row shows letters in several states.
        caption.record.shadow = row.shadow;
        caption.Frame(row.row, row.num, row.den);
        EXPECT_NE(caption.Hash(), blank);
        EXPECT_EQ(caption.Hash(), row.hash)
            << std::hex << "{" << std::dec << row.row << ", " << row.num << ", " << row.den << ", "
            << row.shadow << ", 0x" << std::hex << caption.Hash() << "},";
    }
    EffectRegistry::FixSeed(std::nullopt);
}

TEST(TextEffects, ReservedCodesAndFailedInits)
{
    Caption caption(1);
    TextEffectParams block = caption.Block(1, 1);
    for (EffectProc proc :
         {&TextShowAtHalf, &TextFadeSweep, &TextFlyIn, &TextGlyphStream, &TextGlyphScatter, &TextGlyphGrow}) {
        EXPECT_EQ(proc(EffectReserved2, &block), 0);
        EXPECT_EQ(proc(EffectReserved4, &block), 0);
        EXPECT_EQ(caption.record.effectState, 0u);
    }
    // A font too large for any sheet fails the init, leaves no state, and later renders draw nothing.
    caption.record.font.height = -8000;
    caption.glyphs.assign(256, caption.glyphs[0]);
    block = caption.Block(0, 100);
    const std::size_t before = LiveTextStates();
    EXPECT_EQ(TextFlyIn(EffectInit, &block), -1);
    EXPECT_EQ(caption.record.effectState, 0u);
    EXPECT_EQ(LiveTextStates(), before);
}

} // namespace
} // namespace lumenar::effects
