#include "effects/BasicTransitions.h"

#include "effects/EffectProtocol.h"
#include "effects/EffectRegistry.h"
#include "effects/FlatTransitions.h"
#include "effects/LineTransitions.h"
#include "effects/Random.h"
#include "effects/WarpCells.h"
#include "effects/WarpTransitions.h"
#include "platform/Cpu.h"
#include "tests/support/TaggedPictures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace lumenar::effects {
namespace {

using Pictures = testing::TaggedPictures;
constexpr std::uint8_t kSource = Pictures::kSource;
constexpr std::uint8_t kTarget = Pictures::kTarget;
constexpr std::uint8_t kUntouched = Pictures::kUntouched;

// A table row at x = kWhole compares the whole output with the source ("S") or the target ("T").
constexpr int kWhole = -1;

std::string At(char picture, int x, int r)
{
    // The pictures keep the low byte of each coordinate.
    return std::string(1, picture) + " " + std::to_string(x % 256) + " " + std::to_string(r % 256);
}

TEST(CutAtHalf, SwitchesAtHalfOfTheLength)
{
    struct Row
    {
        int n, d;
        char shown;
    } rows[] = {{49, 101, 'S'}, {50, 101, 'T'}, {49, 100, 'S'}, {50, 100, 'T'},
                {0, 1, 'T'},    {0, 2, 'S'},    {1, 3, 'T'}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.n << "/" << row.d);
        Pictures p(5, 3);
        p.Run(CutAtHalf, row.n, row.d);
        EXPECT_EQ(p.output, row.shown == 'S' ? p.source : p.target);
    }
}

TEST(FadeThroughBlack, DarkensToBlackAtHalfTimeAndComesBack)
{
    struct Row
    {
        int n;
        bool fromTarget;
        std::uint32_t level; // Of 256.
    } rows[] = {{25, false, 128}, {50, false, 0}, {51, true, 5}, {75, true, 128}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.n);
        Pictures p(3, 2);
        p.Run(FadeThroughBlack, row.n, 100);
        const auto& picture = row.fromTarget ? p.target : p.source;
        for (std::size_t i = 0; i < p.output.size(); ++i)
            ASSERT_EQ(p.output[i], (picture[i] * row.level) >> 8) << "byte " << i;
    }
}

TEST(Bounce, HeightsAtTheArcsEndsAndPeaks)
{
    const std::pair<int, int> heights[] = {{0, 90}, {16, 19}, {17, 10}, {32, 80}, {48, 0}, {56, 50},
                                           {64, 0}, {75, 55}, {86, 0},  {90, 20}, {100, 0}};
    for (const auto& [p, height] : heights)
        EXPECT_EQ(BounceHeight(p), height) << p;
    // At 32 % (lifted 80 % of 10 rows) the target's bottom row is at row 8, over the source's shadow
    // (tag 'S' halved); at 56 % (lifted 5 rows) over the plain source.
    Pictures p(2, 10);
    p.Run(Bounce, 32, 100);
    EXPECT_EQ(p.From(0, 8), At('T', 0, 0));
    EXPECT_EQ(p.output[(7 * 2 + 1) * 4 + 2], kSource >> 1);
    p.Run(Bounce, 56, 100);
    EXPECT_EQ(p.From(0, 5), At('T', 0, 0));
    EXPECT_EQ(p.From(1, 4), At('S', 1, 4));
}

// At half time the front has travelled half way and its phase cos(π / 2) is 0: with a wavelength of
// one pixel every sample of the wave is sin(2π i) = 0, so the front is straight at 10 of 20.
TEST(Wave, TheFrontAtHalfTimeFromEveryEdge)
{
    struct Row
    {
        std::uint16_t direction;
        int w, h, x, r;
        char shown;
    } rows[] = {
        {kDirectionLeft, 20, 3, 9, 1, 'T'},   {kDirectionLeft, 20, 3, 10, 1, 'S'},
        {kDirectionRight, 20, 3, 10, 1, 'T'}, {kDirectionRight, 20, 3, 9, 1, 'S'},
        {kDirectionBottom, 3, 20, 1, 9, 'T'}, {kDirectionBottom, 3, 20, 1, 10, 'S'},
        {kDirectionTop, 3, 20, 1, 10, 'T'},   {kDirectionTop, 3, 20, 1, 9, 'S'},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message()
                     << "direction " << row.direction << " at " << row.x << "," << row.r);
        Pictures p(row.w, row.h);
        EffectParams block = p.Block(0, 100, row.direction);
        Wave(EffectInit, &block);
        p.Run(Wave, 50, 100, row.direction);
        EXPECT_EQ(p.From(row.x, row.r), At(row.shown, row.x, row.r));
        Wave(EffectRelease, nullptr);
    }
}

// Every tile of a seeded mosaic, just before and just after its own threshold: a flat block of the
// source's, then the target's, middle pixel; well after it the target itself.
TEST(Mosaic, TilesTurnThroughFlatBlocks)
{
    Pictures p(8, 8);
    SeedRandom(7);
    int thresholds[4];
    for (int& threshold : thresholds)
        threshold = Rand() % 100;
    SeedRandom(7);
    EffectParams block = p.Block(0, 100, 0, 4);
    Mosaic(EffectInit, &block);
    for (int tile = 0; tile < 4; ++tile) {
        const int x = tile % 2 * 4, r = tile / 2 * 4;
        SCOPED_TRACE(::testing::Message() << "tile " << tile << " turning at " << thresholds[tile]);
        const std::pair<int, std::string> moments[] = {
            {thresholds[tile] - 5, At('S', x + 2, r + 2)},
            {thresholds[tile] + 5, At('T', x + 2, r + 2)},
            {thresholds[tile] + 15, At('T', x + 1, r + 3)},
        };
        for (const auto& [percent, expected] : moments) {
            if (percent < 1 || percent > 99)
                continue;
            p.Run(Mosaic, percent, 100);
            EXPECT_EQ(p.From(x + 1, r + 3), expected) << percent;
        }
    }
    Mosaic(EffectRelease, nullptr);
}

// Every ray of the burst is a sector of a disc about the centre: within one wedge no pixel shows the
// target farther out than one that shows the source. Catches wedges met in the wrong order along a row.
TEST(Burst, EachWedgeIsASectorOfADisc)
{
    EffectRegistry::FixSeed(5);
    for (const auto& [w, h] : {std::pair{64, 48}, std::pair{33, 57}}) {
        Pictures p(w, h);
        EffectParams block = p.Block(0, 100);
        Burst(EffectInit, &block);
        for (int n : {10, 35, 60}) {
            SCOPED_TRACE(::testing::Message() << w << "x" << h << " at " << n << " %");
            p.Run(Burst, n, 100);
            constexpr int kWedges = 24;
            std::vector<double> farthestIn(kWedges, -1), nearestOut(kWedges, 1e9);
            for (int r = 0; r < h; ++r) {
                for (int x = 0; x < w; ++x) {
                    const double dx = 2.0 * x + 1 - w, dy = 2.0 * r + 1 - h;
                    double turns = std::atan2(dy, dx) / (2 * std::numbers::pi);
                    turns = (turns < 0 ? turns + 1 : turns) * kWedges;
                    if (std::abs(turns - std::round(turns)) < 1e-9)
                        continue; // On an edge between two wedges.
                    const int wedge = static_cast<int>(turns) % kWedges;
                    const double radius = std::hypot(dx, dy);
                    const char picture = p.From(x, r)[0];
                    ASSERT_TRUE(picture == 'S' || picture == 'T') << x << " " << r;
                    auto& bound = picture == 'T' ? farthestIn[wedge] : nearestOut[wedge];
                    bound = picture == 'T' ? std::max(bound, radius) : std::min(bound, radius);
                }
            }
            for (int k = 0; k < kWedges; ++k)
                EXPECT_LT(farthestIn[k], nearestOut[k]) << "wedge " << k;
            EXPECT_EQ(p.From(w / 2, h / 2)[0], 'T');
            if (n == 10) {
                EXPECT_EQ(p.From(0, 0)[0], 'S');
            }
        }
        Burst(EffectRelease, nullptr);
    }
    EffectRegistry::FixSeed(std::nullopt);
}

// A 20 × 10 squeeze at 50 % has its pinch on screen row 5 from the top (memory row 4): a row d rows
// short of 10 away from it is squeezed by d² × 10 / 100 on each side, the target above the pinch and the
// source below. Squeezed rows hold the whole picture row sampled at the centres of their pixels.
TEST(SqueezeThrough, RowsNarrowTowardsThePinchAndKeepTheFourthByte)
{
    struct Row
    {
        const char* name;
        int w, h, percent, x, r;
        std::string expected; // "black": colour bytes 0.
    } rows[] = {
        {"top row: inset 2", 20, 10, 50, 1, 9, "black"},
        {"top row: first sample", 20, 10, 50, 2, 9, At('T', 0, 9)},
        {"top row: last sample", 20, 10, 50, 17, 9, At('T', 19, 9)},
        {"just above the pinch: inset 8", 20, 10, 50, 8, 5, At('T', 2, 5)},
        {"the pinch itself", 20, 10, 50, 10, 4, "black"},
        {"bottom row: inset 3", 20, 10, 50, 3, 0, At('S', 0, 0)},
        // At 25 % the pinch is 3 rows above the top: the top row is squeezed by 4, and from the sixth
        // row down the source is whole.
        {"coming in: top row", 20, 10, 25, 3, 9, "black"},
        {"coming in: top row's first sample", 20, 10, 25, 4, 9, At('S', 0, 9)},
        {"coming in: sixth row whole", 20, 10, 25, 0, 4, At('S', 0, 4)},
        {"odd width: one column left at the pinch", 7, 10, 50, 3, 4, At('S', 3, 4)},
        {"odd width: beside it", 7, 10, 50, 2, 4, "black"},
        {"start", 20, 10, 0, kWhole, 0, "S"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pictures p(row.w, row.h);
        p.Run(SqueezeThrough, row.percent, 100);
        for (std::size_t i = 0; i < p.output.size(); ++i) {
            if (i % 4 == 3) {
                ASSERT_EQ(p.output[i], kUntouched + 1) << "pixel " << i / 4;
            } else if (row.x == kWhole) {
                ASSERT_EQ(p.output[i], p.source[i]) << "byte " << i;
            }
        }
        if (row.x == kWhole)
            continue;
        const std::uint8_t* px = &p.output[(static_cast<std::size_t>(row.r) * row.w + row.x) * 4];
        EXPECT_EQ(px[0] == 0 && px[1] == 0 && px[2] == 0 ? "black" : p.From(row.x, row.r), row.expected);
    }
}

TEST(DiagonalFlipWave, ProfileFallsFromWholeToNothingAndBack)
{
    // n = 4: k = 0, 32768, 65536, 32768, 0. n = 1 (a 1 × 1 picture) takes the whole 2³² as reciprocal.
    EXPECT_EQ(FlipWaveProfile(4), (std::vector<std::int32_t>{65536, 49152, 0, 49152, 65536}));
    EXPECT_EQ(FlipWaveProfile(1), (std::vector<std::int32_t>{65536, 65536}));
    // Up to a 1920 × 1080 picture's wave: symmetric, never rising towards the middle, and all but empty
    // there (an odd wave's middle line is one short of the whole: about 2 / n is left).
    for (const std::int32_t n : {3, 7, 100, 2100}) {
        SCOPED_TRACE(n);
        const auto profile = FlipWaveProfile(n);
        ASSERT_EQ(profile.size(), static_cast<std::size_t>(n) + 1);
        EXPECT_EQ(profile.front(), 65536);
        for (std::size_t i = 1; i <= static_cast<std::size_t>(n); ++i) {
            EXPECT_EQ(profile[i], profile[static_cast<std::size_t>(n) - i]);
            if (2 * i <= static_cast<std::size_t>(n)) {
                EXPECT_LE(profile[i], profile[i - 1]);
            }
        }
        EXPECT_LT(profile[static_cast<std::size_t>(n / 2)], n % 2 == 0 ? 8 : 65536 * 2 / n + 8);
    }
}

// One flip-wave frame through the registry. Its seed draws the two random rows and then the mirror bit,
// the third draw's low bit: 0 for seed 3, 1 for seed 4.
Pictures FlipWaveFrame(std::uint32_t seed, int w, int h, int n, int d)
{
    EffectRegistry::FixSeed(seed);
    EffectRegistry registry;
    Pictures p(w, h);
    EffectParams block = p.Block(0, 100);
    registry.RunPicture(97, EffectInit, &block);
    block = p.Block(n, d);
    registry.RunPicture(97, EffectRender, &block);
    registry.RunPicture(97, EffectRelease, nullptr);
    EffectRegistry::FixSeed(std::nullopt);
    return p;
}

// A 4 × 3 wave has n = trunc(0.7 × 7) = 4 and 4 + 7 positions. At 4 of 11 the lines from the bottom
// corner have reached profile entries 4, 3, 2, 1, 0, 0: line 0 (the corner) is the whole target, line 1
// the target at ¾ length, line 2 at the switch has shrunk to nothing, line 3 is the source at ¾, and the
// last two are the whole source. A line keeps its pixel nearest the other diagonal where it was.
TEST(DiagonalFlipWave, LinesShrinkSwitchAndGrowInTurnFromTheBottomCorner)
{
    struct Row
    {
        const char* name;
        std::uint32_t seed;
        int n, x, r;
        std::string expected;
    } rows[] = {
        {"line 0 whole", 3, 4, 3, 0, At('T', 3, 0)},
        {"line 1: its first pixel", 3, 4, 2, 0, At('T', 2, 0)},
        {"line 1: the quarter cut off", 3, 4, 3, 1, "black"},
        {"line 2 shrunk to nothing", 3, 4, 2, 1, "black"},
        {"line 3: cut off before the diagonal", 3, 4, 0, 0, "black"},
        {"line 3: its whole content squeezed in", 3, 4, 1, 1, At('S', 0, 0)},
        {"line 3: the last sample", 3, 4, 2, 2, At('S', 1, 1)},
        {"line 5 whole", 3, 4, 0, 2, At('S', 0, 2)},
        {"mirrored: line 0", 4, 4, 0, 0, At('T', 0, 0)},
        {"mirrored: line 3 squeezed", 4, 4, 2, 1, At('S', 3, 0)},
        {"mirrored: line 5 whole", 4, 4, 3, 2, At('S', 3, 2)},
        {"start", 3, 0, kWhole, 0, "S"},
        {"mirrored end", 4, 11, kWhole, 0, "T"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Pictures p = FlipWaveFrame(row.seed, 4, 3, row.n, 11);
        if (row.x == kWhole)
            EXPECT_EQ(p.output, row.expected == "S" ? p.source : p.target);
        else
            EXPECT_EQ(p.From(row.x, row.r), row.expected);
    }
    // Mirrored, every frame is the unmirrored one seen in a mirror, the samples' columns too.
    for (const int n : {5, 30, 50, 61, 95}) {
        SCOPED_TRACE(n);
        const Pictures plain = FlipWaveFrame(3, 37, 23, n, 100), mirrored = FlipWaveFrame(4, 37, 23, n, 100);
        for (std::size_t r = 0; r < 23; ++r) {
            for (std::size_t x = 0; x < 37; ++x) {
                const std::uint8_t* a = &plain.output[(r * 37 + 36 - x) * 4];
                const std::uint8_t* b = &mirrored.output[(r * 37 + x) * 4];
                const std::uint8_t column = a[2] == 0 ? 0 : static_cast<std::uint8_t>(36 - a[0]);
                ASSERT_EQ(std::vector(b, b + 4), (std::vector<std::uint8_t>{column, a[1], a[2], a[3]}))
                    << x << " " << r;
            }
        }
    }
    // Without a matching init, or for a strip too long to keep lines for, only the ends are drawn.
    for (const auto& [w, init] : {std::pair{4, false}, std::pair{65537, true}}) {
        SCOPED_TRACE(w);
        Pictures p(w, 1);
        EffectParams block = p.Block(0, 100);
        if (init)
            DiagonalFlipWave(EffectInit, &block);
        p.Run(DiagonalFlipWave, 4, 11);
        EXPECT_EQ(p.output, p.Make(kUntouched));
        p.Run(DiagonalFlipWave, 11, 11);
        EXPECT_EQ(p.output, p.target);
        DiagonalFlipWave(EffectRelease, nullptr);
    }
}

TEST(TileDissolve, PicksTheLargestTileThatDividesBothSides)
{
    struct Row
    {
        int w, h, variant, tiles;
    } rows[] = {{300, 200, 20, 150}, {310, 200, 20, 620}, {640, 480, 8, 4800}, {7, 5, 4, 35}, {1, 1, 20, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.w << "x" << row.h << " v" << row.variant);
        Pictures p(row.w, row.h);
        SeedRandom(99);
        EffectParams block = p.Block(0, 100, 0, row.variant);
        TileDissolve(EffectInit, &block);
        // One threshold is drawn per tile: the generator has moved on by the tile count.
        SeedRandom(99);
        for (int i = 0; i < row.tiles; ++i)
            Rand();
        const int expected = Rand();
        SeedRandom(99);
        TileDissolve(EffectInit, &block);
        EXPECT_EQ(Rand(), expected);
        TileDissolve(EffectRelease, nullptr);
    }
}

TEST(TileDissolve, SwitchesTilesAndKeepsTheFourthByte)
{
    Pictures p(40, 20);
    SeedRandom(7);
    EffectParams block = p.Block(0, 100, 0, 4);
    TileDissolve(EffectInit, &block);
    p.Run(TileDissolve, 0, 100);
    EXPECT_EQ(p.output, p.source);
    p.output = p.Make(kUntouched);
    p.Run(TileDissolve, 50, 100);
    int fromTarget = 0;
    for (int r = 0; r < 20; ++r) {
        for (int x = 0; x < 40; ++x) {
            const std::uint8_t* px = &p.output[(static_cast<std::size_t>(r) * 40 + x) * 4];
            EXPECT_EQ(px[3], kUntouched + 1);
            fromTarget += px[2] == kTarget;
            // Every pixel of a 4 × 4 tile comes from the same picture.
            const std::uint8_t* corner =
                &p.output[(static_cast<std::size_t>(r / 4 * 4) * 40 + x / 4 * 4) * 4];
            EXPECT_EQ(px[2], corner[2]);
        }
    }
    EXPECT_GT(fromTarget, 100);
    EXPECT_LT(fromTarget, 700);
    p.Run(TileDissolve, 100, 100);
    EXPECT_EQ(p.output, p.target);
    TileDissolve(EffectRelease, nullptr);
}

// Where single output pixels come from, per transition, size, progress, direction and variant. A row
// at x = kWhole compares the whole output with the source ("S") or the target ("T").
TEST(Transitions, PixelsComeFromWhereTheMotionSays)
{
    struct Row
    {
        const char* name;
        EffectProc proc;
        int w, h, n;
        std::uint16_t direction;
        int variant, x, r;
        std::string expected;
    } rows[] = {
        {"smear up: uncovered", SmearWipe, 4, 200, 50, kDirectionBottom, 0, 2, 99, At('T', 2, 99)},
        {"smear up: row 100 smeared", SmearWipe, 4, 200, 50, kDirectionBottom, 0, 3, 100, At('T', 3, 100)},
        {"smear up: top row smeared", SmearWipe, 4, 200, 50, kDirectionBottom, 0, 3, 199, At('T', 3, 100)},
        {"smear down: uncovered", SmearWipe, 3, 10, 30, kDirectionTop, 0, 0, 7, At('T', 0, 7)}, // m 3, q 7.
        {"smear down: smeared", SmearWipe, 3, 10, 30, kDirectionTop, 0, 0, 0, At('T', 0, 6)},
        {"smear right: uncovered", SmearWipe, 10, 2, 30, kDirectionLeft, 0, 2, 1, At('T', 2, 1)}, // k 3.
        {"smear right: smeared", SmearWipe, 10, 2, 30, kDirectionLeft, 0, 9, 1, At('T', 3, 1)},
        {"smear left: uncovered", SmearWipe, 10, 2, 30, kDirectionRight, 0, 7, 0, At('T', 7, 0)},
        {"smear left: smeared", SmearWipe, 10, 2, 30, kDirectionRight, 0, 0, 0, At('T', 7, 0)},
        {"smear left, k 0: the last column", SmearWipe, 10, 2, 5, kDirectionRight, 0, 0, 1, At('T', 9, 1)},
        {"smear without a direction", SmearWipe, 6, 6, 50, 0, 0, 1, 1, At('U', 1, 1)},
        {"smear, direction 0x02", SmearWipe, 6, 6, 50, 0x02, 0, 1, 1, At('U', 1, 1)},
        {"smear, direction 0x11", SmearWipe, 6, 6, 50, 0x11, 0, 1, 1, At('U', 1, 1)},
        {"smear, direction 0x80", SmearWipe, 6, 6, 50, 0x80, 0, 1, 1, At('U', 1, 1)},
        {"smear at the start", SmearWipe, 6, 6, 0, 0, 0, kWhole, 0, "S"},
        // Opening box at t = 0.5: a = 2, b = 2, so the box spans columns 3-6, rows 2-5.
        {"box opening at the start", BoxWipe, 10, 8, 0, kDirectionRight, 1, kWhole, 0, "S"},
        {"box opening: left of the box", BoxWipe, 10, 8, 50, kDirectionRight, 1, 2, 4, At('S', 2, 4)},
        {"box opening: its left column", BoxWipe, 10, 8, 50, kDirectionRight, 1, 3, 4, At('T', 3, 4)},
        {"box opening: its top right", BoxWipe, 10, 8, 50, kDirectionRight, 1, 6, 5, At('T', 6, 5)},
        {"box opening: right of the box", BoxWipe, 10, 8, 50, kDirectionRight, 1, 7, 5, At('S', 7, 5)},
        {"box opening: below the box", BoxWipe, 10, 8, 50, kDirectionRight, 1, 4, 1, At('S', 4, 1)},
        {"box opening, odd sizes: the centre", BoxWipe, 7, 5, 0, 0, 1, 3, 2, At('T', 3, 2)},
        {"box opening, odd sizes: beside it", BoxWipe, 7, 5, 0, 0, 1, 2, 2, At('S', 2, 2)},
        {"box closing starts with a frame of no width", BoxWipe, 7, 5, 0, 0, 0, kWhole, 0, "S"},
        {"box closing, odd sizes: the edge", BoxWipe, 7, 5, 100, 0, 0, 0, 0, At('T', 0, 0)},
        {"box closing, odd sizes: the centre stays", BoxWipe, 7, 5, 100, 0, 0, 3, 2, At('S', 3, 2)},
        // 80 × 8 at t = 0.5: Wipe and SlideIn moved by w/8 = 10, Push by w/2 = 40.
        {"wipe from the left", Wipe, 80, 8, 50, kDirectionLeft, 1, 9, 3, At('T', 9, 3)},
        {"wipe from the left, uncovered edge", Wipe, 80, 8, 50, kDirectionLeft, 1, 10, 3, At('S', 10, 3)},
        {"slide from the left: the far edge", SlideIn, 80, 8, 50, kDirectionLeft, 1, 0, 3, At('T', 70, 3)},
        {"slide keeps the source in place", SlideIn, 80, 8, 50, kDirectionLeft, 1, 10, 3, At('S', 10, 3)},
        {"push from the left", Push, 80, 8, 50, kDirectionLeft, 1, 39, 2, At('T', 79, 2)},
        {"push moves the source along", Push, 80, 8, 50, kDirectionLeft, 1, 40, 2, At('S', 0, 2)},
        {"push by ten: the target's first column", Push, 100, 2, 10, kDirectionLeft, 1, 0, 1, At('T', 90, 1)},
        {"push by ten: the target's last column", Push, 100, 2, 10, kDirectionLeft, 1, 9, 1, At('T', 99, 1)},
        {"push by ten: the source's last column", Push, 100, 2, 10, kDirectionLeft, 1, 99, 0, At('S', 89, 0)},
        {"push from the right", Push, 80, 8, 50, kDirectionRight, 1, 39, 2, At('S', 79, 2)},
        {"push from the right, target", Push, 80, 8, 50, kDirectionRight, 1, 40, 2, At('T', 0, 2)},
        {"slide from the right", SlideIn, 80, 8, 50, kDirectionRight, 1, 70, 5, At('T', 0, 5)},
        {"wipe from the top", Wipe, 80, 8, 50, kDirectionTop, 1, 4, 7, At('T', 4, 7)},
        {"wipe from the top: source below", Wipe, 80, 8, 50, kDirectionTop, 1, 4, 6, At('S', 4, 6)},
        {"slide from the top", SlideIn, 80, 8, 50, kDirectionTop, 1, 4, 7, At('T', 4, 0)},
        {"push from the top", Push, 80, 8, 50, kDirectionTop, 1, 4, 0, At('S', 4, 4)},
        {"push from the bottom", Push, 80, 8, 50, kDirectionBottom, 1, 4, 0, At('T', 4, 4)},
        {"push from the bottom: source up", Push, 80, 8, 50, kDirectionBottom, 1, 4, 4, At('S', 4, 0)},
        {"slide from the bottom", SlideIn, 80, 8, 50, kDirectionBottom, 1, 4, 0, At('T', 4, 7)},
        // Bands of two rows (or columns) alternate their sense: rows 0-1 from the right, 2-3 from the left.
        {"bands: row 0 from the right", SlideIn, 80, 100, 50, kDirectionRight, 50, 79, 0, At('T', 9, 0)},
        {"bands: row 1 from the right", SlideIn, 80, 100, 50, kDirectionRight, 50, 79, 1, At('T', 9, 1)},
        {"bands: row 2 from the left", SlideIn, 80, 100, 50, kDirectionRight, 50, 0, 2, At('T', 70, 2)},
        {"bands: row 2's source", SlideIn, 80, 100, 50, kDirectionRight, 50, 79, 2, At('S', 79, 2)},
        {"bands: row 4 from the right", SlideIn, 80, 100, 50, kDirectionRight, 50, 0, 4, At('S', 0, 4)},
        {"bands: column 0 from the bottom", Wipe, 100, 16, 50, kDirectionBottom, 50, 0, 1, At('T', 0, 1)},
        {"bands: column 0's source", Wipe, 100, 16, 50, kDirectionBottom, 50, 0, 2, At('S', 0, 2)},
        {"bands: column 2 from the top", Wipe, 100, 16, 50, kDirectionBottom, 50, 2, 15, At('T', 2, 15)},
        {"bands: column 2's source", Wipe, 100, 16, 50, kDirectionBottom, 50, 2, 1, At('S', 2, 1)},
        {"no bands: variant 0", Push, 10, 10, 50, kDirectionRight, 0, 5, 5, At('U', 5, 5)},
        {"no bands: negative variant", Push, 10, 10, 50, kDirectionRight, -3, 5, 5, At('U', 5, 5)},
        // 16 slats; a horizontal one of 10 rows at t = 0.3 has k = trunc(160 × 0.3 / 16) = 3 rows.
        {"blinds right: first slat", Blinds, 320, 2, 50, kDirectionLeft, 16, 9, 0, At('T', 9, 0)},
        {"blinds right: last slat", Blinds, 320, 2, 50, kDirectionLeft, 16, 309, 0, At('T', 309, 0)},
        {"blinds right: last slat's source", Blinds, 320, 2, 50, kDirectionLeft, 16, 310, 0, At('S', 310, 0)},
        {"blinds left: source", Blinds, 320, 2, 50, kDirectionRight, 16, 9, 1, At('S', 9, 1)},
        {"blinds left: target", Blinds, 320, 2, 50, kDirectionRight, 16, 10, 1, At('T', 10, 1)},
        {"blinds up: target", Blinds, 2, 160, 30, kDirectionBottom, 16, 0, 12, At('T', 0, 12)},
        {"blinds up: source", Blinds, 2, 160, 30, kDirectionBottom, 16, 0, 13, At('S', 0, 13)},
        // 1 − 0.3 in single precision is just under 0.7: k = trunc(6.99999…) = 6 rows of source first.
        {"blinds down: source", Blinds, 2, 160, 30, kDirectionTop, 16, 1, 155, At('S', 1, 155)},
        {"blinds down: target", Blinds, 2, 160, 30, kDirectionTop, 16, 1, 156, At('T', 1, 156)},
        {"blinds: the last slat runs to the top", Blinds, 3, 37, 99, kDirectionTop, 16, 2, 36,
         At('T', 2, 36)},
        // Iris, 10 × 10 at t = 0.1: in doubled centre coordinates the radius² is 2, so only the four
        // centre pixels (±1, ±1) are in; odd sides keep their middle pixel as the centre.
        {"iris: a centre pixel", Iris, 10, 10, 10, 0, 0, 4, 5, At('T', 4, 5)},
        {"iris: beside the centre", Iris, 10, 10, 10, 0, 0, 3, 5, At('S', 3, 5)},
        {"iris, odd sides: the middle", Iris, 9, 7, 1, 0, 0, 4, 3, At('T', 4, 3)},
        {"iris at the start", Iris, 9, 7, 0, 0, 0, kWhole, 0, "S"},
        // Checkerboard, 16 × 16 (cells of 2): at 25 % the even cells are one column in, the odd ones
        // none; at 75 % the even cells are full and the odd ones one column in. Row 15 is the top.
        {"checkerboard: even cell's first column", Checkerboard, 16, 16, 25, 0, 0, 0, 15, At('T', 0, 15)},
        {"checkerboard: even cell's second column", Checkerboard, 16, 16, 25, 0, 0, 1, 15, At('S', 1, 15)},
        {"checkerboard: odd cell", Checkerboard, 16, 16, 25, 0, 0, 2, 15, At('S', 2, 15)},
        {"checkerboard: odd cell below an even one", Checkerboard, 16, 16, 25, 0, 0, 0, 13, At('S', 0, 13)},
        {"checkerboard late: even cell full", Checkerboard, 16, 16, 75, 0, 0, 1, 15, At('T', 1, 15)},
        {"checkerboard late: odd cell's first column", Checkerboard, 16, 16, 75, 0, 0, 2, 15, At('T', 2, 15)},
        {"checkerboard late: odd cell's second column", Checkerboard, 16, 16, 75, 0, 0, 3, 15,
         At('S', 3, 15)},
        // Split, 10 wide at 50 %: each half has moved out by 2, leaving the target in columns 3-6.
        {"split: the left half moved out", Split, 10, 2, 50, 0, 0, 0, 1, At('S', 2, 1)},
        {"split: the left half's inner edge", Split, 10, 2, 50, 0, 0, 2, 1, At('S', 4, 1)},
        {"split: the gap", Split, 10, 2, 50, 0, 0, 3, 0, At('T', 3, 0)},
        {"split: the gap's right edge", Split, 10, 2, 50, 0, 0, 6, 0, At('T', 6, 0)},
        {"split: the right half moved out", Split, 10, 2, 50, 0, 0, 7, 0, At('S', 5, 0)},
        // Zooms, 8 × 8 at 50 %: a 4 × 4 picture at columns and rows 2-5, every other sample.
        {"zoom in: the corner sample", ZoomIn, 8, 8, 50, 0, 0, 2, 2, At('T', 0, 0)},
        {"zoom in: every other sample", ZoomIn, 8, 8, 50, 0, 0, 3, 5, At('T', 2, 6)},
        {"zoom in: outside", ZoomIn, 8, 8, 50, 0, 0, 6, 2, At('S', 6, 2)},
        {"zoom out: the shrunk source", ZoomOut, 8, 8, 50, 0, 0, 5, 3, At('S', 6, 2)},
        {"zoom out: outside", ZoomOut, 8, 8, 50, 0, 0, 1, 1, At('T', 1, 1)},
        // Stretches, 8 × 8 at 50 %: the target four pixels wide (or high), every other sample.
        {"stretch: the target's second sample", Stretch, 8, 8, 50, 0, 0, 1, 3, At('T', 2, 3)},
        {"stretch: the source beside it", Stretch, 8, 8, 50, 0, 0, 4, 3, At('S', 4, 3)},
        {"squeeze: the target", Squeeze, 8, 8, 50, 0, 0, 3, 0, At('T', 6, 0)},
        {"squeeze: the squeezed source", Squeeze, 8, 8, 50, 0, 0, 5, 0, At('S', 2, 0)},
        {"stretch across: the target's top row", StretchAcross, 8, 8, 50, 0, 0, 2, 7, At('T', 2, 6)},
        {"stretch across: the source below", StretchAcross, 8, 8, 50, 0, 0, 2, 3, At('S', 2, 3)},
        // Clock wipe, 10 × 10: at a quarter the hand points to three o'clock, at three quarters to nine.
        {"clock at a quarter: top right", ClockWipe, 10, 10, 25, 0, 0, 7, 7, At('T', 7, 7)},
        {"clock at a quarter: bottom right", ClockWipe, 10, 10, 25, 0, 0, 7, 2, At('S', 7, 2)},
        {"clock at a quarter: top left", ClockWipe, 10, 10, 25, 0, 0, 2, 7, At('S', 2, 7)},
        {"clock at three quarters: bottom left", ClockWipe, 10, 10, 75, 0, 0, 2, 2, At('T', 2, 2)},
        {"clock at three quarters: top left", ClockWipe, 10, 10, 75, 0, 0, 2, 7, At('S', 2, 7)},
        {"clock, odd width: the middle column above", ClockWipe, 9, 9, 1, 0, 0, 4, 8, At('T', 4, 8)},
        {"clock, odd width: the middle column below", ClockWipe, 9, 9, 99, 0, 0, 4, 0, At('T', 4, 0)},
        {"clock, odd width: left of the hand at the start", ClockWipe, 9, 9, 1, 0, 0, 3, 8, At('S', 3, 8)},
        // Pixelate, 48 × 48: blocks of 4 at half time on the source, of 2 at three quarters on the target,
        // each the colour of its middle pixel.
        {"pixelate at half time", Pixelate, 48, 48, 50, 0, 0, 5, 6, At('S', 6, 6)},
        {"pixelate at three quarters", Pixelate, 48, 48, 75, 0, 0, 5, 6, At('T', 5, 7)},
        {"pixelate, the last block cut short", Pixelate, 47, 47, 50, 0, 0, 46, 46, At('S', 46, 46)},
        {"gradient at half time: the top-left corner", GradientDissolve, 16, 16, 50, 0, 0, 0, 15,
         At('T', 0, 15)},
        {"gradient at half time: the bottom-right corner", GradientDissolve, 16, 16, 50, 0, 0, 15, 0,
         At('S', 15, 0)},
        // Pattern wipe, 64 × 64 with cells of 6 at 20 %: the wave's first cells have turned, its last not.
        {"pattern along the diagonal: top left", PatternWipe, 64, 64, 20, 0, 8, 0, 63, At('T', 0, 63)},
        {"pattern along the diagonal: bottom right", PatternWipe, 64, 64, 20, 0, 8, 63, 0, At('S', 63, 0)},
        {"pattern, soft: a turned cell's core", PatternWipe, 64, 64, 20, 0, 0x108, 2, 62, At('T', 2, 62)},
        {"pattern from the left", PatternWipe, 64, 64, 20, kDirectionLeft, 0x208, 0, 32, At('T', 0, 32)},
        {"pattern from the left: far side", PatternWipe, 64, 64, 20, kDirectionLeft, 0x208, 63, 32,
         At('S', 63, 32)},
        {"pattern from the right", PatternWipe, 64, 64, 20, kDirectionRight, 0x208, 63, 32, At('T', 63, 32)},
        {"pattern from the top", PatternWipe, 64, 64, 20, kDirectionTop, 0x208, 32, 63, At('T', 32, 63)},
        {"pattern from the top: bottom", PatternWipe, 64, 64, 20, kDirectionTop, 0x208, 32, 0,
         At('S', 32, 0)},
        {"pattern from the bottom", PatternWipe, 64, 64, 20, kDirectionBottom, 0x208, 32, 0, At('T', 32, 0)},
        {"pattern from the centre", PatternWipe, 64, 64, 20, 0, 0x208, 32, 32, At('T', 32, 32)},
        {"pattern from the centre: a corner", PatternWipe, 64, 64, 20, 0, 0x208, 0, 0, At('S', 0, 0)},
        {"pattern at the start", PatternWipe, 9, 7, 0, 0, 0x30c, kWhole, 0, "S"},
        {"out: black behind", OutAndBack, 100, 4, 25, kDirectionLeft, 0, 49, 2, "black"},
        {"out: the source moved", OutAndBack, 100, 4, 25, kDirectionLeft, 0, 50, 2, At('S', 0, 2)},
        {"out: its far edge", OutAndBack, 100, 4, 25, kDirectionLeft, 0, 99, 2, At('S', 49, 2)},
        {"out: black at half", OutAndBack, 100, 4, 50, kDirectionLeft, 0, 99, 0, "black"},
        {"back: the target's edge", OutAndBack, 100, 4, 75, kDirectionRight, 0, 49, 0, At('T', 99, 0)},
        {"back: black ahead", OutAndBack, 100, 4, 75, kDirectionRight, 0, 50, 0, "black"},
        {"out downwards", OutAndBack, 2, 100, 25, kDirectionTop, 0, 1, 0, At('S', 1, 50)},
        {"out downwards: black above", OutAndBack, 2, 100, 25, kDirectionTop, 0, 1, 50, "black"},
        {"out upwards at the start", OutAndBack, 6, 6, 0, kDirectionBottom, 0, kWhole, 0, "S"},
        {"out to the right at the start", OutAndBack, 6, 6, 0, kDirectionLeft, 0, kWhole, 0, "S"},
        {"out downwards at the start", OutAndBack, 6, 6, 0, kDirectionTop, 0, kWhole, 0, "S"},
        {"out to the left at the start", OutAndBack, 6, 6, 0, kDirectionRight, 0, kWhole, 0, "S"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pictures p(row.w, row.h);
        p.Run(row.proc, row.n, 100, row.direction, row.variant);
        if (row.x == kWhole)
            EXPECT_EQ(p.output, row.expected == "S" ? p.source : p.target);
        else
            EXPECT_EQ(p.From(row.x, row.r), row.expected);
    }
}

TEST(CrossFade, PackedWeightingAtTheEnds)
{
    struct Row
    {
        std::uint8_t source, target;
        int n;
        std::uint8_t expected;
    } rows[] = {{255, 0, 0, 253},   {0, 255, 0, 1},      {255, 0, 100, 0},
                {0, 255, 100, 255}, {100, 100, 37, 100}, {200, 10, 50, 105}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message()
                     << int(row.source) << " over " << int(row.target) << " at " << row.n);
        Pictures p(5, 3);
        std::fill(p.source.begin(), p.source.end(), row.source);
        std::fill(p.target.begin(), p.target.end(), row.target);
        p.Run(CrossFade, row.n, 100);
        for (std::uint8_t byte : p.output)
            ASSERT_EQ(byte, row.expected);
    }
}

// One use of a warp: init, a render at `n` percent, release.
std::vector<std::uint8_t> UseOnce(Pictures& p, EffectProc proc, int n)
{
    EffectParams block = p.Block(0, 100);
    proc(EffectInit, &block);
    p.Run(proc, n, 100);
    proc(EffectRelease, nullptr);
    return p.output;
}

// The swirl and the spiral take the next preset at every release and come back to the first after a
// whole list (the index is the process's, so the test starts wherever it stands); the quarters keep
// theirs.
TEST(Warps, PresetsAdvanceAtEveryReleaseAndWrap)
{
    struct Row
    {
        const char* name;
        EffectProc proc;
        int presets;
    } rows[] = {{"swirl", Swirl, kSwirlPresetCount},
                {"spiral", Spiral, kSpiralPresetCount},
                {"swirl quarters", SwirlQuarters, 1},
                {"spiral quarters", SpiralQuarters, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pictures p(40, 30);
        const auto first = UseOnce(p, row.proc, 50);
        auto previous = first;
        for (int use = 1; use <= row.presets; ++use) {
            const auto frame = UseOnce(p, row.proc, 50);
            if (use == row.presets)
                EXPECT_EQ(frame, first) << "after " << use << " releases";
            else
                EXPECT_NE(frame, previous) << "use " << use;
            previous = frame;
        }
    }
}

// A quarter draws from itself alone: changing the source in one quarter changes the output there and
// nowhere else. Odd sizes put the split at half the size rounded down.
TEST(Warps, QuartersDrawEachQuarterOnItsOwn)
{
    struct Quarter
    {
        const char* name;
        bool right, above;
    } quarters[] = {
        {"origin", false, false}, {"above", false, true}, {"right", true, false}, {"opposite", true, true}};
    for (EffectProc proc : {SwirlQuarters, SpiralQuarters}) {
        for (const Quarter& quarter : quarters) {
            SCOPED_TRACE(::testing::Message()
                         << (proc == SwirlQuarters ? "swirl " : "spiral ") << quarter.name);
            Pictures p(21, 17);
            const auto plain = UseOnce(p, proc, 40);
            const auto inside = [&](int x, int r) {
                return (x >= 10) == quarter.right && (r >= 8) == quarter.above;
            };
            for (int r = 0; r < p.h; ++r)
                for (int x = 0; x < p.w; ++x)
                    if (inside(x, r))
                        p.source[(static_cast<std::size_t>(r) * p.w + x) * 4 + 2] = 'X';
            const auto changed = UseOnce(p, proc, 40);
            int differing = 0;
            for (int r = 0; r < p.h; ++r) {
                for (int x = 0; x < p.w; ++x) {
                    const std::size_t at = (static_cast<std::size_t>(r) * p.w + x) * 4 + 2;
                    if (inside(x, r))
                        differing += changed[at] != plain[at];
                    else
                        ASSERT_EQ(changed[at], plain[at]) << "outside the quarter at " << x << "," << r;
                }
            }
            EXPECT_GT(differing, 0);
        }
    }
}

// The melt: each column has dropped as one piece, the source moved down by the column's fall and the
// target above it; the falls come from the seeded generator, so a seed repeats them exactly.
TEST(Warps, MeltDropsWholeColumnsAndRepeatsWithASeed)
{
    for (int percent : {30, 60, 90}) {
        SCOPED_TRACE(percent);
        Pictures p(50, 40);
        SeedRandom(11);
        const auto frame = UseOnce(p, Melt, percent);
        SeedRandom(11);
        EXPECT_EQ(UseOnce(p, Melt, percent), frame);
        SeedRandom(12);
        EXPECT_NE(UseOnce(p, Melt, percent), frame);
        SeedRandom(11);
        UseOnce(p, Melt, percent);
        int fallen = 0;
        for (int x = 0; x < p.w; ++x) {
            // Memory row 0 is the bottom: the source's row `drop` has fallen to it.
            const std::uint8_t* bottom = &p.output[static_cast<std::size_t>(x) * 4];
            const int drop = bottom[2] == kSource ? bottom[1] : p.h;
            fallen += drop > 0;
            for (int r = 0; r < p.h; ++r)
                ASSERT_EQ(p.From(x, r), r + drop < p.h ? At('S', x, r + drop) : At('T', x, r))
                    << x << "," << r;
        }
        EXPECT_GT(fallen, 0);
    }
}

// Which picture shows where, for the warps that move pixels too far to name the sample exactly.
TEST(Warps, ThePictureEachPartShows)
{
    struct Row
    {
        const char* name;
        EffectProc proc;
        int n, x, r;
        std::uint8_t tag;
    } rows[] = {
        {"ripple starts at the centre", Ripple, 20, 30, 20, kTarget},
        {"ripple has not reached the corner", Ripple, 20, 0, 0, kSource},
        {"ripple has passed the corner", Ripple, 85, 59, 39, kTarget},
        {"swirl still winds the source", Swirl, 20, 5, 5, kSource},
        {"swirl unwinds the target", Swirl, 80, 55, 35, kTarget},
        {"swirl quarters, early", SwirlQuarters, 20, 45, 10, kSource},
        {"swirl quarters, late", SwirlQuarters, 80, 15, 30, kTarget},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        // Red 0 in the source and 255 in the target: the ripple's light moves it by less than half.
        Pictures p(60, 40);
        for (std::size_t i = 2; i < p.source.size(); i += 4) {
            p.source[i] = 0;
            p.target[i] = 255;
        }
        UseOnce(p, row.proc, row.n);
        EXPECT_EQ(p.output[(static_cast<std::size_t>(row.r) * p.w + row.x) * 4 + 2] >= 128,
                  row.tag == kTarget);
    }
}

// Every built picture row: the full progress shows the target, rendering twice gives the same frame,
// and odd, tiny and uneven sizes stay inside the pictures (the sanitizer builds check the bounds).
TEST(BuiltRows, EndOnTheTargetAndRepeatExactly)
{
    EffectRegistry::FixSeed(3);
    EffectRegistry registry;
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 3}, {37, 23}, {160, 100}, {101, 7}};
    for (int row = 0; row < kPictureEffectCount - 1; ++row) {
        if (registry.Describe(kPictureTable, row).built != Built::Yes)
            continue;
        for (const auto& [w, h] : sizes) {
            SCOPED_TRACE(::testing::Message() << "row " << row << " at " << w << "x" << h);
            Pictures p(w, h);
            EffectParams block = p.Block(0, 100);
            registry.RunPicture(row, EffectInit, &block);
            for (int n : {0, 1, 33, 50, 99, 100, 250, -4}) {
                block = p.Block(n, 100);
                registry.RunPicture(row, EffectRender, &block);
                const auto first = p.output;
                registry.RunPicture(row, EffectRender, &block);
                EXPECT_EQ(p.output, first) << n;
            }
            block = p.Block(100, 100);
            registry.RunPicture(row, EffectRender, &block);
            const bool boxClosingOnOddSize = row == 65 && w % 2 == 1 && h % 2 == 1;
            if (!boxClosingOnOddSize) {
                // Tile copies keep the output's fourth byte; compare colours only.
                for (std::size_t i = 0; i < p.output.size(); ++i) {
                    if (i % 4 != 3) {
                        ASSERT_EQ(p.output[i], p.target[i]) << "byte " << i;
                    }
                }
            }
            registry.RunPicture(row, EffectRelease, nullptr);
        }
    }
    EffectRegistry::FixSeed(std::nullopt);
}

// Frames of one row of every built family at 30 % and 70 %, hashed: a change to any of them shows here
// first. When a change is meant, the failure prints the new hashes for this table.
TEST(BuiltRows, GoldenFrames)
{
    struct Golden
    {
        int row;
        std::uint64_t at30, at70;
    } goldens[] = {
        {23, 0xb30d3a7141269f48, 0xf5b2c4e990e65550}, {25, 0x7b3447121d723eab, 0x638c8268d3aa999f},
        {29, 0x90a01d98e2f08ddb, 0x9a66f6015e1d67c3}, {30, 0x820d0f97b1685547, 0x2ed312509cebeb1b},
        {33, 0x5bcec0ea21d12dd9, 0x2a3eb86944feeade}, {34, 0xb59ea5022303e212, 0xfeeadd75238fe631},
        {35, 0xa76feafa14eb67a8, 0xb5fa5f31f572437},  {36, 0xb04879e96bbcedce, 0xf16d11eb9028b689},
        {39, 0x8f0977eb3b2002ab, 0xd41ae8add1b05137}, {40, 0x8ea4a61e4fd1c77e, 0x8ea4a61e4fd1c77e},
        {41, 0x8f0977eb3b2002ab, 0x8f0977eb3b2002ab}, {42, 0xcda5411797858d23, 0x1d9f883b402b8113},
        {43, 0x26d086ef6e6f1603, 0xbd430be1e310cba7}, {44, 0x26d086ef6e6f1603, 0xe44d158b9054fcaf},
        {45, 0x9e495e2e98f1f80f, 0xdefa2e6dbd15da4b}, {48, 0x9cf0dbcaa657683f, 0xc245f9298b819ab},
        {49, 0xc294b17550b583b7, 0x3121120606f7e64b}, {53, 0x8f0977eb3b2002ab, 0x477312895846e507},
        {57, 0x8f0977eb3b2002ab, 0xd4d64e175a5d0d37}, {61, 0x19d5e7d149f68456, 0x2728f81da3ea20ae},
        {65, 0x49c5cd59d469fb43, 0x628b4611664864bb}, {77, 0x8f0977eb3b2002ab, 0xe9e371acc885effb},
        {81, 0xecb7d2efb8782277, 0xbc1e444b9e24bd80}, {85, 0x3dab83e9550dc2bb, 0x4ab1a3279e50fc8f},
        {87, 0xe27946b1cb923c0f, 0xc81e0ea23ad7eb0a}, {89, 0x976b743b7d4f96f, 0x33a6ac13abb91d93},
        {90, 0xb9e8a4c97eb7b6b2, 0x5e1be828454120e2}, {91, 0xfda6f9d1cb40b85b, 0xc279e6098e76566f},
        {95, 0x8f0977eb3b2002ab, 0xd41ae8add1b05137}, {96, 0x5547e367e70a0803, 0x276c3663c66bd224},
        {97, 0xab14002167920563, 0xe67121a90efc2d06}, {22, 0x944071ca2ce65445, 0x2baf276efdc9d31e},
        {24, 0x64c6db509cda6893, 0x3a124656315f0f1},  {26, 0xa2fcd93599a7e1cb, 0xb6de02e2bb3464e},
        {27, 0x99b4058ce5923685, 0x1b8fe396466cd127}, {28, 0x97a9e57e1d557402, 0x738e13cbd09e5ae7},
        {88, 0x396b0449e59df965, 0xf16c0f0dc0d23a5d}, {0, 0x90925508d7ab379d, 0x467b24cb749f5288},
        {2, 0x1fdab3a537ce00fe, 0x249ed641cca04f7},   {4, 0x4bdb7f04cbf20ebe, 0xcc453d85d4e4e7be},
        {6, 0x6ac50ae30edc0c11, 0x3abdaf68438997c7},  {7, 0xf25e851f839a8817, 0x6d2003095d7bdd6c},
        {9, 0xcdad320cb214de92, 0x1234f4f61f09439f},  {46, 0x325ecf2307b90633, 0x5d7dac47cc225feb},
        {17, 0x8c4d4e6be5c39af9, 0x7979b7504a30bcd0}, {18, 0xa5007e333ff679cf, 0x287c27bdeb7e9376},
        {20, 0x91d7839ffdc7529, 0x6b45ec50cdd98085},  {14, 0x9cdea0349451df79, 0x8376ee7de0e7fd29},
        {15, 0xe9cf6c41bcfe1787, 0x1cbd272654183132}, {16, 0xa511acc6a6cfa081, 0x86aeefbca5f08b4},
        {86, 0x890735581794d37d, 0xac78c807fc990123},
    };
    const auto hash = [](const std::vector<std::uint8_t>& bytes) {
        std::uint64_t h = 0xcbf29ce484222325ull; // FNV-1a
        for (std::uint8_t b : bytes)
            h = (h ^ b) * 0x100000001b3ull;
        return h;
    };
    EffectRegistry registry;
    for (const Golden& g : goldens) {
        // The swirl and the spiral start from whichever preset earlier uses left them at: a whole
        // round of their presets, summed, is the same from any start.
        const int uses = g.row == 24 ? kSwirlPresetCount : g.row == 26 ? kSpiralPresetCount : 1;
        std::uint64_t got[2] = {};
        for (int use = 0; use < uses; ++use) {
            SeedRandom(11);
            Pictures p(37, 23);
            EffectParams block = p.Block(0, 100);
            registry.RunPicture(g.row, EffectInit, &block);
            for (int i : {0, 1}) {
                block = p.Block(i == 0 ? 30 : 70, 100);
                registry.RunPicture(g.row, EffectRender, &block);
                got[i] += hash(p.output);
            }
            registry.RunPicture(g.row, EffectRelease, nullptr);
        }
        EXPECT_TRUE(got[0] == g.at30 && got[1] == g.at70) << std::hex << "{" << std::dec << g.row << ", 0x"
                                                          << std::hex << got[0] << ", 0x" << got[1] << "},";
    }
}

// The warps' cell sampling: the AVX2 gather against the portable walk, alone and blended, over cells
// that stand still, turn, shear, run backwards, and are narrower or wider than a whole cell.
TEST(Warps, CellSamplingFormsMatchBitForBit)
{
    if (!WarpAvx2Built() || !platform::Simd().avx2)
        GTEST_SKIP() << "no AVX2 here";
    constexpr std::size_t kWidth = 40, kHeight = 30;
    std::mt19937 random(5);
    std::vector<std::uint32_t> source(kWidth * kHeight), target(kWidth * kHeight);
    for (std::size_t i = 0; i < source.size(); ++i) {
        source[i] = random();
        target[i] = random();
    }
    // Corners in pixels (bottom left, bottom right, top left, top right), with the cell's size.
    struct Row
    {
        const char* name;
        double corners[4][2];
        std::int32_t wide, tall, count;
        std::int32_t weight;
    } rows[] = {
        {"unmoved", {{3, 4}, {11, 4}, {3, 12}, {11, 12}}, 8, 8, 8, 128},
        {"turned a quarter", {{20, 5}, {20, 13}, {12, 5}, {12, 13}}, 8, 8, 8, 1},
        {"sheared far", {{0, 0}, {39, 3}, {5, 29}, {30, 20}}, 8, 8, 8, 255},
        {"backwards", {{39.9, 29.9}, {0, 29}, {39, 0}, {0.2, 0}}, 8, 8, 8, 256},
        {"last cell, nine wide", {{31, 21}, {39, 21}, {31, 29}, {39, 29}}, 8, 8, 9, 77},
        {"narrow edge cell", {{36, 2}, {39, 9}, {30, 8}, {33, 14}}, 3, 5, 4, 0},
    };
    const auto path = [](const Row& row, int which) {
        const auto at = [&](int corner, int axis) {
            return static_cast<std::int32_t>(std::floor((row.corners[corner][axis] + 0.5) * 65536)) -
                   (which == 1 && axis == 0 ? 65536 / 3 : 0);
        };
        const auto clamp = [](std::int32_t v, std::size_t size) {
            return std::clamp<std::int32_t>(v, 0, static_cast<std::int32_t>(size) * 65536 - 1);
        };
        std::int32_t x[4], y[4];
        for (int c = 0; c < 4; ++c) {
            x[c] = clamp(at(c, 0), kWidth);
            y[c] = clamp(at(c, 1), kHeight);
        }
        return CellPath{x[0],
                        y[0],
                        x[1],
                        y[1],
                        (x[2] - x[0]) / row.tall,
                        (y[2] - y[0]) / row.tall,
                        (x[3] - x[1]) / row.tall,
                        (y[3] - y[1]) / row.tall,
                        row.wide};
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::size_t pitch = 12;
        const std::int32_t lines = row.tall + 1;
        std::vector<std::uint32_t> slow(pitch * static_cast<std::size_t>(lines), 7), wide = slow;
        SampleCellPortable(path(row, 0), source.data(), kWidth, slow.data(), pitch, row.count, lines);
        SampleCellAvx2(path(row, 0), source.data(), kWidth, wide.data(), pitch, row.count, lines);
        EXPECT_EQ(wide, slow);
        SampleCellBlendedPortable(path(row, 0), source.data(), path(row, 1), target.data(), kWidth,
                                  slow.data(), pitch, row.count, lines, row.weight);
        SampleCellBlendedAvx2(path(row, 0), source.data(), path(row, 1), target.data(), kWidth, wide.data(),
                              pitch, row.count, lines, row.weight);
        EXPECT_EQ(wide, slow);
    }
}

// The wide forms of the tile dissolve's row copy (runs of every length, so every tail, from both
// pictures, into outputs whose fourth bytes must survive), of the squeeze's row and of the cross-fade,
// against the portable ones. The AVX2 forms run where the processor has it.
TEST(Blends, WideFormsMatchThePortableFormsBitForBit)
{
    const bool avx2 = BlendAvx2Built() && platform::Simd().avx2;
    std::mt19937 random(9);
    std::vector<std::uint32_t> source(203), target(203), sse2(203), wide(203), slow(203);
    for (int round = 0; round < 200; ++round) {
        for (std::size_t i = 0; i < source.size(); ++i) {
            source[i] = random();
            target[i] = random();
            sse2[i] = wide[i] = slow[i] = random();
        }
        std::vector<ColourRun> runs;
        for (std::int32_t at = 0; at < 203;) {
            const std::int32_t count =
                std::min<std::int32_t>(1 + static_cast<std::int32_t>(random() % 23), 203 - at);
            runs.push_back({at, count, random() % 2 == 0});
            at += count;
        }
        CopyColourRunsPortable(source.data(), target.data(), slow.data(), runs);
        CopyColourRunsSse2(source.data(), target.data(), sse2.data(), runs);
        ASSERT_EQ(sse2, slow) << "round " << round;
        if (avx2) {
            CopyColourRunsAvx2(source.data(), target.data(), wide.data(), runs);
            ASSERT_EQ(wide, slow) << "round " << round;
        }
        // The squeeze's row at every inset of a width, odd widths keeping a middle column.
        const auto w = static_cast<std::int32_t>(1 + round % 67);
        for (std::int32_t inset = 0; inset <= w / 2; ++inset) {
            std::copy(target.begin(), target.end(), slow.begin());
            std::copy(target.begin(), target.end(), sse2.begin());
            SqueezeRowPortable(source.data(), slow.data(), w, inset);
            SqueezeRowSse2(source.data(), sse2.data(), w, inset);
            ASSERT_EQ(sse2, slow) << "width " << w << " inset " << inset;
        }
    }
    // The fade's scaling: every level, on bytes that include 255, against the plain formula.
    std::vector<std::uint8_t> bytes(1027), scaled(1027), scaledSse2(1027), scaledWide(1027);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i % 3 == 0 ? 255 : random());
    for (std::uint32_t level = 0; level <= 256; ++level) {
        ScaleBytesPortable(bytes.data(), scaled.data(), bytes.size(), level);
        ScaleBytesSse2(bytes.data(), scaledSse2.data(), bytes.size(), level);
        if (avx2)
            ScaleBytesAvx2(bytes.data(), scaledWide.data(), bytes.size(), level);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            ASSERT_EQ(scaled[i], (bytes[i] * level) >> 8) << "level " << level << " byte " << i;
            ASSERT_EQ(scaledSse2[i], scaled[i]) << "level " << level << " byte " << i;
            if (avx2) {
                ASSERT_EQ(scaledWide[i], scaled[i]) << "level " << level << " byte " << i;
            }
        }
    }
    // The soft edges' ramps: rising, falling and clamped at both ends, over runs with every tail.
    std::vector<std::uint8_t> rampSource(4 * 67), rampTarget(4 * 67), ramp(4 * 67), rampSse2(4 * 67);
    for (int round = 0; round < 100; ++round) {
        for (std::size_t i = 0; i < rampSource.size(); ++i) {
            rampSource[i] = static_cast<std::uint8_t>(round == 0 ? 0 : random());
            rampTarget[i] = static_cast<std::uint8_t>(round == 0 ? 255 : random());
        }
        const std::int64_t start = static_cast<std::int64_t>(random() % 40000000) - 10000000;
        const std::int64_t step = static_cast<std::int64_t>(random() % 2000000) - 1000000;
        const auto count = static_cast<std::int32_t>(random() % 68);
        BlendRampPortable(rampSource.data(), rampTarget.data(), ramp.data(), count, start, step);
        BlendRampSse2(rampSource.data(), rampTarget.data(), rampSse2.data(), count, start, step);
        ASSERT_EQ(rampSse2, ramp) << "round " << round;
    }
    // The cross-fade at every weight, from the extremes and from noise, with a tail after the wide steps.
    std::vector<std::uint8_t> from(4099), to(4099), fast(4099), widest(4099), portable(4099);
    for (int round = 0; round < 20; ++round) {
        for (std::size_t i = 0; i < from.size(); ++i) {
            from[i] = static_cast<std::uint8_t>(round < 2 ? 255 * round : random());
            to[i] = static_cast<std::uint8_t>(round < 2 ? 255 - 255 * round : random());
        }
        for (int a = 0; a <= 127; ++a) {
            CrossFadeBytesPortable(from.data(), to.data(), portable.data(), from.size(), a);
            CrossFadeBytesSse2(from.data(), to.data(), fast.data(), from.size(), a);
            ASSERT_EQ(fast, portable) << "round " << round << " a " << a;
            if (avx2) {
                CrossFadeBytesAvx2(from.data(), to.data(), widest.data(), from.size(), a);
                ASSERT_EQ(widest, portable) << "round " << round << " a " << a;
            }
        }
    }
}

} // namespace
} // namespace lumenar::effects
