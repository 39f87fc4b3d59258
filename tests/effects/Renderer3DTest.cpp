#include "effects/Renderer3D.h"

#include "effects/EffectProtocol.h"
#include "effects/EffectRegistry.h"
#include "effects/Random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

namespace lumenar::effects::render3d {
namespace {

// A picture of 32-bit pixels, bottom row first, and the canvas over it.
struct Picture
{
    int w, h;
    std::vector<std::uint8_t> bytes;
    Picture(int width, int height, std::uint32_t fill = 0)
        : w(width), h(height), bytes(static_cast<std::size_t>(width) * height * 4)
    {
        for (std::size_t i = 0; i < bytes.size(); i += 4)
            std::memcpy(&bytes[i], &fill, 4);
    }
    Canvas AsCanvas() { return {bytes.data(), w, h}; }
    // Pixel at column x of row y counted from the top.
    std::uint32_t At(int x, int y) const
    {
        std::uint32_t p;
        std::memcpy(&p, &bytes[(static_cast<std::size_t>(h - 1 - y) * w + x) * 4], 4);
        return p;
    }
};

Texture Flat(std::uint32_t colour)
{
    std::uint8_t pixel[4];
    std::memcpy(pixel, &colour, 4);
    return MakeTexture(pixel, 1, 1);
}

// A card of half-size (hw, hh) at depth z, turned by `turn` about the upright axis.
Card CardAt(double hw, double hh, double z, const Texture& front, const Texture& back, double turn = 0)
{
    const Mat4 place = Mat4::Translate(0, 0, z) * Mat4::RotateY(turn);
    const Vec3 at[4] = {{-hw, hh, 0}, {-hw, -hh, 0}, {hw, -hh, 0}, {hw, hh, 0}};
    const double uv[4][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    Card card;
    for (std::size_t i = 0; i < 4; ++i) {
        card.corners[i] = {place.Apply(at[i]), uv[i][0], uv[i][1]};
        card.backUv[i] = {1 - uv[i][0], uv[i][1]};
    }
    card.front = &front;
    card.back = &back;
    return card;
}

// A card at rest that fills the frame shows a picture of the texture's own size sample for sample.
TEST(Renderer3D, ACardAtRestShowsItsPictureExactly)
{
    Picture source(kTextureSize, kTextureSize);
    std::mt19937 random(5);
    for (auto& b : source.bytes)
        b = static_cast<std::uint8_t>(random());
    const Texture texture = MakeTexture(source.bytes.data(), source.w, source.h);
    Picture out(kTextureSize, kTextureSize);
    ASSERT_TRUE(
        DrawCard(out.AsCanvas(), Camera::Filling(out.w, out.h, 1, 2), CardAt(1, 1, 2, texture, texture)));
    EXPECT_TRUE(out.bytes == source.bytes);
}

// Shrinking averages: fine stripes become an even grey rather than a pattern of their own.
TEST(Renderer3D, TexturesOfLargerPicturesDoNotAlias)
{
    Picture stripes(1600, 1200);
    for (int y = 0; y < stripes.h; ++y)
        for (int x = 0; x < stripes.w; ++x)
            std::memset(&stripes.bytes[(static_cast<std::size_t>(y) * stripes.w + x) * 4], x % 2 ? 255 : 0,
                        4);
    const Texture texture = MakeTexture(stripes.bytes.data(), stripes.w, stripes.h);
    // Away from the edges, which repeat the picture's outermost (black) column.
    for (int y = 0; y < kTextureSize; ++y)
        for (int x = 2; x < kTextureSize - 2; ++x)
            ASSERT_NEAR(static_cast<int>(texture.At(x, y) & 255), 128, 8) << x;
}

// The rasteriser's two inner loops, over spans that run off every side of the texture, backwards and at
// every shade: the same bytes.
TEST(Renderer3D, SseSamplingMatchesThePortableFormBitForBit)
{
    if (!SampleSpanSse2Built())
        GTEST_SKIP() << "no SSE2 form on this processor";
    Picture noise(300, 200);
    std::mt19937 random(9);
    for (auto& b : noise.bytes)
        b = static_cast<std::uint8_t>(random());
    const Texture texture = MakeTexture(noise.bytes.data(), noise.w, noise.h);
    // Spans that leave the texture (clamped per pixel), spans wholly inside it (not clamped), steps
    // that shrink or enlarge, and every length, so that the four-pixel steps end at each place.
    struct Row
    {
        const char* name;
        std::int64_t lowest, highest, step;
    };
    const Row rows[] = {
        {"leaving the texture", -(40LL << 16), 560LL << 16, 3LL << 16},
        {"inside, enlarged", 0, 500LL << 16, 1LL << 14},
        {"inside, shrunk", 0, 511LL << 16, 2LL << 16},
        {"near the last texel", 508LL << 16, 512LL << 16, 1LL << 12},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::uniform_int_distribution<std::int64_t> place(row.lowest, row.highest);
        std::uniform_int_distribution<std::int64_t> step(-row.step, row.step);
        for (int span = 0; span < 2000; ++span) {
            const std::int64_t tu = place(random), tv = place(random), du = step(random), dv = step(random);
            const auto shade = static_cast<std::uint32_t>(span % 257);
            const int count = 1 + span % 16;
            std::vector<std::uint8_t> portable(17 * 4, 0xAB), wide(17 * 4, 0xAB);
            SampleSpanPortable(texture.texels.data(), tu, tv, du, dv, count, shade, portable.data());
            SampleSpanSse2(texture.texels.data(), tu, tv, du, dv, count, shade, wide.data());
            ASSERT_EQ(portable, wide) << span; // Nothing past the span written either.
        }
    }
}

// Corners on pixel boundaries cover exactly the pixels between them, once split in two triangles too.
TEST(Renderer3D, CoverageFollowsPixelCentres)
{
    const Texture red = Flat(0x00FF0000);
    const Texture blue = Flat(0x000000FF);
    Camera camera; // Focal 1, centre at the origin: (x, y, 1) lands on column x, row -y.
    camera.width = 10;
    camera.height = 8;
    const Vertex a{{2, -2, 1}}, b{{2, -5, 1}}, c{{6, -5, 1}}, d{{6, -2, 1}};
    const Vertex face[] = {a, b, c, d, a, b, c};
    enum class Way
    {
        Card,
        Triangles,
        Face,
        TooFewCorners,
        TooManyCorners
    };
    const struct
    {
        const char* name;
        Way way;
    } rows[] = {{"one card", Way::Card},
                {"two triangles", Way::Triangles},
                {"one face", Way::Face},
                {"a face of two corners draws nothing", Way::TooFewCorners},
                {"a face of too many corners draws nothing", Way::TooManyCorners}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Picture out(10, 8);
        Card card;
        switch (row.way) {
        case Way::Card:
            card.corners = {a, b, c, d};
            card.front = card.back = &red;
            DrawCard(out.AsCanvas(), camera, card);
            break;
        case Way::Triangles:
            DrawTriangle(out.AsCanvas(), camera, red, a, b, c, 256);
            DrawTriangle(out.AsCanvas(), camera, blue, a, c, d, 256);
            break;
        case Way::Face:
            DrawFace(out.AsCanvas(), camera, red, face, 4, 256);
            break;
        case Way::TooFewCorners:
            DrawFace(out.AsCanvas(), camera, red, face, 2, 256);
            break;
        case Way::TooManyCorners:
            DrawFace(out.AsCanvas(), camera, red, face, kMaxFaceCorners + 1, 256);
            break;
        }
        const bool drawn = row.way != Way::TooFewCorners && row.way != Way::TooManyCorners;
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 10; ++x)
                EXPECT_EQ(out.At(x, y) != 0, drawn && x >= 2 && x < 6 && y >= 2 && y < 5) << x << "," << y;
    }
}

// A card leaning back: the middle of the picture shows the card's middle, as perspective places it
// (an interpolation straight across the picture would show three quarters of the way).
TEST(Renderer3D, TextureFollowsPerspective)
{
    Picture columns(kTextureSize, kTextureSize);
    for (int y = 0; y < kTextureSize; ++y)
        for (int x = 0; x < kTextureSize; ++x)
            columns.bytes[(static_cast<std::size_t>(y) * kTextureSize + x) * 4 + 2] =
                static_cast<std::uint8_t>(x / 2);
    const Texture ramp = MakeTexture(columns.bytes.data(), kTextureSize, kTextureSize);
    Camera camera;
    camera.width = camera.height = 200;
    camera.focal = 100;
    camera.centreX = camera.centreY = 100;
    Picture out(200, 200);
    Card card;
    card.corners = {Vertex{{-1, 1, 1}, 0, 0}, Vertex{{-1, -1, 1}, 0, 1}, Vertex{{1, -1, 3}, 1, 1},
                    Vertex{{1, 1, 3}, 1, 0}};
    card.front = card.back = &ramp;
    DrawCard(out.AsCanvas(), camera, card);
    // The card leans back by 45 degrees from the line of sight to its middle, which darkens it.
    EXPECT_NEAR(static_cast<int>(out.At(100, 100) >> 16 & 255), 129 * ShadeFor(std::sqrt(0.5)) / 256, 2);
}

// Which side shows, how dark, and what is cut away in front of the eye.
TEST(Renderer3D, FacesShadingAndTheNearPlane)
{
    const Texture red = Flat(0x00C80000);
    const Texture blue = Flat(0x000000C8);
    const Camera camera = Camera::Filling(64, 48, 1, 2);
    struct Row
    {
        const char* name;
        double turn;
        bool front;
        std::uint32_t centre;
    } rows[] = {
        {"facing", 0, true, 0x00C80000},
        {"turned a little", 0.3, true, 0x00C20000},
        {"turned over", std::numbers::pi, false, 0x000000C8},
        {"turned over and back a little", std::numbers::pi - 1.2, false, 0x00000078},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Picture out(64, 48);
        EXPECT_EQ(DrawCard(out.AsCanvas(), camera, CardAt(4.0 / 3, 1, 2, red, blue, row.turn)), row.front);
        EXPECT_EQ(out.At(32, 24), row.centre);
    }
    EXPECT_EQ(ShadeFor(1), 256);
    EXPECT_EQ(ShadeFor(0), 96);

    // A floor running from behind the eye into the distance: what lies behind the eye would land above
    // the horizon if it were projected; cut away, only the floor below the horizon shows.
    Picture out(64, 48);
    Card floor;
    floor.corners = {Vertex{{-5, -1, 10}}, Vertex{{-5, -1, -2}}, Vertex{{5, -1, -2}}, Vertex{{5, -1, 10}}};
    floor.front = floor.back = &red;
    DrawCard(out.AsCanvas(), camera, floor);
    int below = 0;
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            if (y < 24)
                ASSERT_EQ(out.At(x, y), 0u) << x << "," << y;
            else
                below += out.At(x, y) != 0;
        }
    }
    EXPECT_GT(below, 1000);
    for (int x = 0; x < 64; ++x)
        EXPECT_NE(out.At(x, 47), 0u) << x;
}

// The card rows through the registry, on a flat red source and a flat blue target: which picture the
// middle shows a quarter and three quarters of the way, and what the corners show half way.
// Runs one picture row from init to release, rendering one frame at `percent`.
void RunRow(EffectRegistry& registry, Picture& source, Picture& target, Picture& output, int row, int percent)
{
    EffectParams block{};
    block.source = source.bytes.data();
    block.target = target.bytes.data();
    block.output = output.bytes.data();
    block.width = output.w;
    block.height = output.h;
    block.progressDen = 100;
    registry.RunPicture(row, EffectInit, &block);
    block.progressNum = percent;
    registry.RunPicture(row, EffectRender, &block);
    registry.RunPicture(row, EffectRelease, &block);
}

TEST(CardRows, WhatTheMiddleAndTheCornersShow)
{
    constexpr int w = 64, h = 48;
    Picture source(w, h, 0x00FF0000), target(w, h, 0x000000FF), output(w, h);
    EffectRegistry registry;
    auto frame = [&](int row, int percent) { RunRow(registry, source, target, output, row, percent); };
    // 'S' source, 'T' target, '-' either (the tumble is edge-on at both, the longer turns pass both,
    // the shards fly at random), 'K' black. The corner is the top-left pixel at half way.
    struct Row
    {
        int row;
        char early, late, corner;
    } rows[] = {
        {0, 'S', 'T', 'K'},  {1, 'S', 'T', 'K'},  {2, 'S', 'T', 'K'},  {3, 'S', 'T', 'K'},
        {4, '-', '-', 'K'},  {5, 'T', 'S', 'K'},  {6, 'T', 'T', 'K'},  {7, 'S', 'T', '-'},
        {8, 'S', 'T', '-'},  {9, 'S', 'T', '-'},  {10, 'S', 'T', '-'}, {11, '-', '-', '-'},
        {12, 'T', 'S', '-'}, {13, 'T', 'T', '-'}, {46, 'S', 'S', 'T'}, {47, 'S', 'S', 'T'},
        {14, 'S', 'T', 'K'}, {15, 'S', 'T', 'S'}, {16, 'S', 'T', 'T'}, {17, 'S', 'T', 'K'},
        {18, 'S', 'T', 'S'}, {19, 'S', 'T', 'T'}, {20, 'S', 'T', 'S'}, {21, 'S', 'T', 'T'},
        {86, '-', '-', '-'},
    };
    const auto shows = [](std::uint32_t pixel, char picture) {
        if (picture == 'K')
            return pixel == 0;
        const std::uint32_t mine = picture == 'S' ? pixel >> 16 & 255 : pixel & 255;
        const std::uint32_t other = picture == 'S' ? pixel & 255 : pixel >> 16 & 255;
        return picture == '-' || (mine > 64 && other == 0);
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.row);
        frame(r.row, 25);
        EXPECT_TRUE(shows(output.At(w / 2, h / 2), r.early)) << std::hex << output.At(w / 2, h / 2);
        frame(r.row, 75);
        EXPECT_TRUE(shows(output.At(w / 2, h / 2), r.late)) << std::hex << output.At(w / 2, h / 2);
        frame(r.row, 50);
        EXPECT_TRUE(shows(output.At(0, 0), r.corner)) << std::hex << output.At(0, 0);
    }
}

// Where a sheet still lies flat, or has uncovered the picture behind it, the frame holds the pictures'
// own pixels, not their resampled textures; and the shards are cut by the effects' generator alone.
TEST(CardRows, FlatPartsAreThePicturesAndShardsFollowTheSeed)
{
    constexpr int w = 61, h = 47;
    Picture source(w, h), target(w, h), output(w, h);
    for (std::size_t i = 0; i < source.bytes.size(); ++i) {
        source.bytes[i] = static_cast<std::uint8_t>(i * 7 % 251);
        target.bytes[i] = static_cast<std::uint8_t>(i * 13 % 241);
    }
    EffectRegistry registry;
    auto frame = [&](int row, int percent) { RunRow(registry, source, target, output, row, percent); };
    // Column and row (from the top) of pixels that show one picture exactly.
    struct Row
    {
        const char* name;
        int row, percent, x, y;
        char picture;
    } rows[] = {
        {"roll up, top not yet rolled", 18, 25, w / 2, 0, 'S'},
        {"roll up, bottom uncovered", 18, 25, w / 2, h - 1, 'T'},
        {"roll down, bottom not yet rolled", 19, 25, 3, h - 1, 'S'},
        {"roll right, right edge not yet rolled", 21, 25, w - 1, h / 2, 'S'},
        {"roll right, left edge uncovered", 21, 25, 0, h / 2, 'T'},
        {"roll left, last column uncovered", 20, 60, w - 1, 5, 'T'},
        {"page curl, far corner still flat", 15, 10, 0, 0, 'S'},
        {"page curl, near corner uncovered", 15, 90, w - 1, h - 1, 'T'},
        {"page curl back, near corner still bare", 16, 10, w - 1, h - 1, 'S'},
        {"page curl back, far corner already flat", 16, 90, 0, 0, 'T'},
        // Nothing may linger into the last frames, or the end would jump to the target.
        {"roll up, gone off the top by the end", 18, 99, w / 2, 0, 'T'},
        {"roll left, gone off the left by the end", 20, 99, 0, h / 2, 'T'},
        {"page curl, gone off the far corner by the end", 15, 99, 0, 0, 'T'},
        {"page curl back, still off the far corner at the start", 16, 1, 0, 0, 'S'},
        {"shatter, every piece past the eye by the end", 86, 99, w / 2, h / 2, 'T'},
        {"shatter, corner pieces too", 86, 99, 0, h - 1, 'T'},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        frame(r.row, r.percent);
        EXPECT_EQ(output.At(r.x, r.y), (r.picture == 'S' ? source : target).At(r.x, r.y));
    }
    const auto shattered = [&](std::uint32_t seed) {
        SeedRandom(seed);
        frame(86, 40);
        return output.bytes;
    };
    const auto first = shattered(5);
    EXPECT_EQ(shattered(5), first);
    EXPECT_NE(shattered(6), first);
}

// Where the target lies behind a sheet, every pixel shows something: the flat parts are copied to the
// last column and row at every size, whichever way the sheet's edge runs across them.
TEST(CardRows, NoHolesWhereTheTargetLiesBehind)
{
    EffectRegistry registry;
    for (const auto& [w, h] : {std::pair{61, 47}, std::pair{9, 33}, std::pair{120, 17}}) {
        // No colour byte below 100, so that even the darkened backs stay clear of black.
        Picture source(w, h), target(w, h), output(w, h);
        for (std::size_t i = 0; i < source.bytes.size(); ++i) {
            source.bytes[i] = static_cast<std::uint8_t>(100 + i * 7 % 150);
            target.bytes[i] = static_cast<std::uint8_t>(100 + i * 13 % 150);
        }
        for (int row : {15, 16, 18, 19, 20, 21, 86}) {
            for (int percent : {3, 20, 35, 50, 65, 80, 97}) {
                SCOPED_TRACE(::testing::Message()
                             << "row " << row << " at " << percent << "% " << w << "x" << h);
                std::fill(output.bytes.begin(), output.bytes.end(), std::uint8_t{0});
                RunRow(registry, source, target, output, row, percent);
                int holes = 0;
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        holes += (output.At(x, y) & 0xFFFFFF) == 0;
                EXPECT_EQ(holes, 0);
            }
        }
    }
}

} // namespace
} // namespace lumenar::effects::render3d
