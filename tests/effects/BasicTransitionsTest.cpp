#include "effects/BasicTransitions.h"

#include "effects/EffectProtocol.h"
#include "effects/EffectRegistry.h"
#include "effects/Random.h"
#include "platform/Cpu.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace lumenar::effects {
namespace {

// Pictures whose pixels say where they come from: blue = column, green = memory row, red = which picture.
constexpr std::uint8_t kSource = 'S';
constexpr std::uint8_t kTarget = 'T';
constexpr std::uint8_t kUntouched = 'U';

struct Pictures
{
    int w, h;
    std::vector<std::uint8_t> source, target, output;

    Pictures(int width, int height) : w(width), h(height)
    {
        source = Make(kSource);
        target = Make(kTarget);
        output = Make(kUntouched);
    }
    std::vector<std::uint8_t> Make(std::uint8_t tag) const
    {
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(w) * h * 4);
        for (int r = 0; r < h; ++r) {
            for (int x = 0; x < w; ++x) {
                std::uint8_t* p = &pixels[(static_cast<std::size_t>(r) * w + x) * 4];
                p[0] = static_cast<std::uint8_t>(x);
                p[1] = static_cast<std::uint8_t>(r);
                p[2] = tag;
                p[3] = static_cast<std::uint8_t>(tag + 1);
            }
        }
        return pixels;
    }
    EffectParams Block(int n, int d, std::uint16_t direction = 0, int variant = 0)
    {
        EffectParams block{};
        block.size = 64;
        block.source = source.data();
        block.target = target.data();
        block.output = output.data();
        block.width = w;
        block.height = h;
        block.progressNum = n;
        block.progressDen = d;
        block.direction = direction;
        block.variant = variant;
        return block;
    }
    void Run(EffectProc proc, int n, int d, std::uint16_t direction = 0, int variant = 0)
    {
        EffectParams block = Block(n, d, direction, variant);
        proc(EffectRender, &block);
    }
    // Where output pixel (x, memory row r) came from, as "S 3 7" (picture, column, row).
    std::string From(int x, int r) const
    {
        const std::uint8_t* p = &output[(static_cast<std::size_t>(r) * w + x) * 4];
        if (p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 0)
            return "black";
        return std::string(1, static_cast<char>(p[2])) + " " + std::to_string(p[0]) + " " +
               std::to_string(p[1]);
    }
    bool OutputIs(const std::vector<std::uint8_t>& picture) const { return output == picture; }
};

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
        SCOPED_TRACE(testing::Message() << row.n << "/" << row.d);
        Pictures p(5, 3);
        p.Run(CutAtHalf, row.n, row.d);
        EXPECT_TRUE(p.OutputIs(row.shown == 'S' ? p.source : p.target));
    }
}

TEST(SmearWipe, UncoversTheTargetAndSmearsItsBoundary)
{
    Pictures up(4, 200);
    up.Run(SmearWipe, 50, 100, kDirectionBottom);
    EXPECT_EQ(up.From(2, 99), At('T', 2, 99));
    for (int r : {100, 150, 199})
        EXPECT_EQ(up.From(3, r), At('T', 3, 100)) << r;

    Pictures down(3, 10);
    down.Run(SmearWipe, 30, 100, kDirectionTop); // m = 3, q = 7.
    EXPECT_EQ(down.From(0, 7), At('T', 0, 7));
    EXPECT_EQ(down.From(0, 0), At('T', 0, 6));

    Pictures left(10, 2);
    left.Run(SmearWipe, 30, 100, kDirectionLeft); // k = 3.
    EXPECT_EQ(left.From(2, 1), At('T', 2, 1));
    EXPECT_EQ(left.From(9, 1), At('T', 3, 1));

    Pictures right(10, 2);
    right.Run(SmearWipe, 30, 100, kDirectionRight);
    EXPECT_EQ(right.From(7, 0), At('T', 7, 0));
    EXPECT_EQ(right.From(0, 0), At('T', 7, 0));
    Pictures narrow(10, 2);
    narrow.Run(SmearWipe, 5, 100, kDirectionRight); // k = 0: the last column is smeared.
    EXPECT_EQ(narrow.From(0, 1), At('T', 9, 1));

    for (std::uint16_t direction : {0, 0x02, 0x11, 0x80}) {
        Pictures none(6, 6);
        none.Run(SmearWipe, 50, 100, direction);
        EXPECT_EQ(none.From(1, 1), At('U', 1, 1)) << direction;
    }
    Pictures start(6, 6);
    start.Run(SmearWipe, 0, 100, 0);
    EXPECT_TRUE(start.OutputIs(start.source));
}

TEST(BoxWipe, OpensAndClosesAroundTheCentre)
{
    Pictures open(10, 8);
    open.Run(BoxWipe, 0, 100, kDirectionRight, 1);
    EXPECT_TRUE(open.OutputIs(open.source));
    open.Run(BoxWipe, 100, 100, kDirectionRight, 1);
    EXPECT_TRUE(open.OutputIs(open.target));
    open.Run(BoxWipe, 50, 100, kDirectionRight, 1); // a = 2, b = 2: the box spans columns 3-6, rows 2-5.
    EXPECT_EQ(open.From(2, 4), At('S', 2, 4));
    EXPECT_EQ(open.From(3, 4), At('T', 3, 4));
    EXPECT_EQ(open.From(6, 5), At('T', 6, 5));
    EXPECT_EQ(open.From(7, 5), At('S', 7, 5));
    EXPECT_EQ(open.From(4, 1), At('S', 4, 1));

    Pictures odd(7, 5);
    odd.Run(BoxWipe, 0, 100, 0, 1); // Odd sizes: the centre pixel is the box already.
    EXPECT_EQ(odd.From(3, 2), At('T', 3, 2));
    EXPECT_EQ(odd.From(2, 2), At('S', 2, 2));
    odd.Run(BoxWipe, 0, 100, 0, 0); // Closing starts with the target frame... of zero width.
    EXPECT_TRUE(odd.OutputIs(odd.source));
    odd.Run(BoxWipe, 100, 100, 0, 0);
    EXPECT_EQ(odd.From(0, 0), At('T', 0, 0));
    EXPECT_EQ(odd.From(3, 2), At('S', 3, 2)); // Accepted: the centre stays with the box.
}

TEST(TileDissolve, PicksTheLargestTileThatDividesBothSides)
{
    struct Row
    {
        int w, h, variant, tiles;
    } rows[] = {{300, 200, 20, 150}, {310, 200, 20, 620}, {640, 480, 8, 4800}, {7, 5, 4, 35}, {1, 1, 20, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.w << "x" << row.h << " v" << row.variant);
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
    EXPECT_TRUE(p.OutputIs(p.source));
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
    EXPECT_TRUE(p.OutputIs(p.target));
    TileDissolve(EffectRelease, nullptr);
}

TEST(EdgeFamily, MovesByTheTimingCurve)
{
    struct Row
    {
        const char* name;
        EffectProc proc;
        std::uint16_t direction;
        int x, r;
        std::string expected;
    } rows[] = {
        // t = 0.5: Wipe and SlideIn moved by w/8 = 10, Push by w/2 = 40 (80 × 8 pictures).
        {"wipe from the left", Wipe, kDirectionLeft, 9, 3, At('T', 9, 3)},
        {"wipe from the left, uncovered edge", Wipe, kDirectionLeft, 10, 3, At('S', 10, 3)},
        {"slide from the left shows the target's far edge", SlideIn, kDirectionLeft, 0, 3, At('T', 70, 3)},
        {"slide keeps the source in place", SlideIn, kDirectionLeft, 10, 3, At('S', 10, 3)},
        {"push from the left", Push, kDirectionLeft, 39, 2, At('T', 79, 2)},
        {"push moves the source along", Push, kDirectionLeft, 40, 2, At('S', 0, 2)},
        {"push from the right", Push, kDirectionRight, 39, 2, At('S', 79, 2)},
        {"push from the right, target", Push, kDirectionRight, 40, 2, At('T', 0, 2)},
        {"slide from the right", SlideIn, kDirectionRight, 70, 5, At('T', 0, 5)},
        {"wipe from the top", Wipe, kDirectionTop, 4, 7, At('T', 4, 7)},
        {"wipe from the top keeps the source below", Wipe, kDirectionTop, 4, 6, At('S', 4, 6)},
        {"slide from the top", SlideIn, kDirectionTop, 4, 7, At('T', 4, 0)},
        {"push from the top", Push, kDirectionTop, 4, 0, At('S', 4, 4)},
        {"push from the bottom", Push, kDirectionBottom, 4, 0, At('T', 4, 4)},
        {"push from the bottom moves the source up", Push, kDirectionBottom, 4, 4, At('S', 4, 0)},
        {"slide from the bottom", SlideIn, kDirectionBottom, 4, 0, At('T', 4, 7)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pictures p(80, 8);
        p.Run(row.proc, 50, 100, row.direction, 1);
        EXPECT_EQ(p.From(row.x, row.r), row.expected);
    }
}

TEST(EdgeFamily, PushFromTheLeftByTenPixels)
{
    Pictures p(100, 2);
    p.Run(Push, 10, 100, kDirectionLeft, 1);
    for (int x = 0; x < 10; ++x)
        EXPECT_EQ(p.From(x, 1), At('T', 90 + x, 1));
    for (int x = 10; x < 100; ++x)
        EXPECT_EQ(p.From(x, 0), At('S', x - 10, 0));
}

TEST(EdgeFamily, BandsAlternateTheirSense)
{
    Pictures p(80, 100);
    p.Run(SlideIn, 50, 100, kDirectionRight, 50); // Rows 0-1 from the right, 2-3 from the left, ...
    EXPECT_EQ(p.From(79, 0), At('T', 9, 0));
    EXPECT_EQ(p.From(79, 1), At('T', 9, 1));
    EXPECT_EQ(p.From(0, 2), At('T', 70, 2));
    EXPECT_EQ(p.From(79, 2), At('S', 79, 2));
    EXPECT_EQ(p.From(0, 4), At('S', 0, 4));

    Pictures columns(100, 16);
    columns.Run(Wipe, 50, 100, kDirectionBottom,
                50); // dy = 2: columns 0-1 from the bottom, 2-3 from the top.
    EXPECT_EQ(columns.From(0, 1), At('T', 0, 1));
    EXPECT_EQ(columns.From(0, 2), At('S', 0, 2));
    EXPECT_EQ(columns.From(2, 15), At('T', 2, 15));
    EXPECT_EQ(columns.From(2, 1), At('S', 2, 1));

    for (int variant : {0, -3}) {
        Pictures none(10, 10);
        none.Run(Push, 50, 100, kDirectionRight, variant);
        EXPECT_EQ(none.From(5, 5), At('U', 5, 5)) << variant;
    }
}

TEST(Blinds, FillsEverySlatAlike)
{
    Pictures vertical(320, 2);
    vertical.Run(Blinds, 50, 100, kDirectionLeft, 16);
    for (int slat = 0; slat < 16; ++slat) {
        EXPECT_EQ(vertical.From(slat * 20 + 9, 0), At('T', slat * 20 + 9, 0)) << slat;
        EXPECT_EQ(vertical.From(slat * 20 + 10, 0), At('S', slat * 20 + 10, 0)) << slat;
    }
    Pictures right(320, 2);
    right.Run(Blinds, 50, 100, kDirectionRight, 16);
    EXPECT_EQ(right.From(9, 1), At('S', 9, 1));
    EXPECT_EQ(right.From(10, 1), At('T', 10, 1));

    Pictures up(2, 160); // 16 slats of 10 rows; k = trunc(160 × 0.3 / 16) = 3.
    up.Run(Blinds, 30, 100, kDirectionBottom, 16);
    EXPECT_EQ(up.From(0, 12), At('T', 0, 12));
    EXPECT_EQ(up.From(0, 13), At('S', 0, 13));
    // 1 − 0.3 in single precision is just under 0.7: k = trunc(6.99999…) = 6 rows of source first.
    Pictures down(2, 160);
    down.Run(Blinds, 30, 100, kDirectionTop, 16);
    EXPECT_EQ(down.From(1, 155), At('S', 1, 155));
    EXPECT_EQ(down.From(1, 156), At('T', 1, 156));

    Pictures uneven(3, 37); // The last slat runs to the top row.
    uneven.Run(Blinds, 99, 100, kDirectionTop, 16);
    EXPECT_EQ(uneven.From(2, 36), At('T', 2, 36));
}

TEST(OutAndBack, LeavesThroughBlackAndReturns)
{
    Pictures p(100, 4);
    p.Run(OutAndBack, 25, 100, kDirectionLeft);
    EXPECT_EQ(p.From(49, 2), "black");
    EXPECT_EQ(p.From(50, 2), At('S', 0, 2));
    EXPECT_EQ(p.From(99, 2), At('S', 49, 2));
    p.Run(OutAndBack, 50, 100, kDirectionLeft);
    EXPECT_EQ(p.From(99, 0), "black");
    p.Run(OutAndBack, 75, 100, kDirectionRight);
    EXPECT_EQ(p.From(49, 0), At('T', 99, 0));
    EXPECT_EQ(p.From(50, 0), "black");

    for (std::uint16_t direction : {kDirectionBottom, kDirectionTop, kDirectionLeft, kDirectionRight}) {
        Pictures ends(6, 6);
        ends.Run(OutAndBack, 0, 100, direction);
        EXPECT_TRUE(ends.OutputIs(ends.source)) << direction;
        ends.Run(OutAndBack, 100, 100, direction);
        EXPECT_TRUE(ends.OutputIs(ends.target)) << direction;
    }
    Pictures vertical(2, 100);
    vertical.Run(OutAndBack, 25, 100, kDirectionTop); // k = 50 source rows 50-99 at the bottom.
    EXPECT_EQ(vertical.From(1, 0), At('S', 1, 50));
    EXPECT_EQ(vertical.From(1, 50), "black");
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
        SCOPED_TRACE(testing::Message() << int(row.source) << " over " << int(row.target) << " at " << row.n);
        Pictures p(5, 3);
        std::fill(p.source.begin(), p.source.end(), row.source);
        std::fill(p.target.begin(), p.target.end(), row.target);
        p.Run(CrossFade, row.n, 100);
        for (std::uint8_t byte : p.output)
            ASSERT_EQ(byte, row.expected);
    }
}

TEST(CrossFade, Sse2MatchesThePortableFormBitForBit)
{
    std::mt19937 random(5);
    std::vector<std::uint8_t> source(4099), target(4099), fast(4099), slow(4099);
    for (int round = 0; round < 50; ++round) {
        for (std::size_t i = 0; i < source.size(); ++i) {
            source[i] = static_cast<std::uint8_t>(round < 3 ? (round == 0 ? 0 : 255) : random());
            target[i] = static_cast<std::uint8_t>(round < 3 ? (round == 1 ? 0 : 255 - round) : random());
        }
        for (int a = 0; a <= 127; ++a) {
            CrossFadeBytesSse2(source.data(), target.data(), fast.data(), source.size(), a);
            CrossFadeBytesPortable(source.data(), target.data(), slow.data(), source.size(), a);
            ASSERT_EQ(fast, slow) << "round " << round << " a " << a;
        }
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
            SCOPED_TRACE(testing::Message() << "row " << row << " at " << w << "x" << h);
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

// The wide forms of the tile dissolve's row copy (runs of every length, so every tail, from both
// pictures, into outputs whose fourth bytes must survive) and of the cross-fade, against the portable
// ones. The AVX2 forms run where the processor has it.
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
    }
    if (!avx2)
        return;
    std::vector<std::uint8_t> from(4099), to(4099), fast(4099), portable(4099);
    for (int round = 0; round < 20; ++round) {
        for (std::size_t i = 0; i < from.size(); ++i) {
            from[i] = static_cast<std::uint8_t>(round == 0 ? 255 : random());
            to[i] = static_cast<std::uint8_t>(round == 0 ? 0 : random());
        }
        for (int a = 0; a <= 127; ++a) {
            CrossFadeBytesAvx2(from.data(), to.data(), fast.data(), from.size(), a);
            CrossFadeBytesPortable(from.data(), to.data(), portable.data(), from.size(), a);
            ASSERT_EQ(fast, portable) << "round " << round << " a " << a;
        }
    }
}

} // namespace
} // namespace lumenar::effects
