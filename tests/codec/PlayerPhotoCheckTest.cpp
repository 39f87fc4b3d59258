#include "codec/PlayerPhotoCheck.h"

#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"
#include "platform/ImageFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace lumenar::codec {
namespace {

using Bytes = std::vector<std::uint8_t>;

platform::BgrxPicture Noise(int width, int height, unsigned seed)
{
    platform::BgrxPicture picture{width, height, Bytes(std::size_t(width) * std::size_t(height) * 4)};
    std::mt19937 random(seed);
    for (std::uint8_t& b : picture.pixels)
        b = static_cast<std::uint8_t>(random());
    return picture;
}

Bytes Encode(int width, int height, platform::JpegChroma chroma, unsigned seed = 1)
{
    auto bytes = platform::EncodeBaselineJpeg(Noise(width, height, seed), 90, chroma);
    EXPECT_TRUE(bytes.ok());
    return bytes.ok() ? *bytes : Bytes{};
}

std::size_t Find(const Bytes& bytes, std::uint8_t first, std::uint8_t second)
{
    for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
        if (bytes[i] == first && bytes[i + 1] == second)
            return i;
    return bytes.size();
}

Bytes InsertAt(Bytes bytes, std::size_t at, const Bytes& segment)
{
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), segment.begin(), segment.end());
    return bytes;
}

// An EXIF segment (big-endian TIFF, one entry) that records `orientation`.
Bytes ExifSegment(std::uint8_t orientation)
{
    return {0xFF, 0xE1, 0x00, 0x22, 'E', 'x', 'i', 'f', 0, 0, 'M', 'M',         0, 0x2A, 0, 0, 0, 8,
            0,    1,    0x01, 0x12, 0,   3,   0,   0,   0, 1, 0,   orientation, 0, 0,    0, 0, 0, 0};
}

TEST(PlayerPhotoCheck, TellsWhatThePlayerCannotShow)
{
    using platform::JpegChroma;
    const Bytes full = Encode(64, 48, JpegChroma::Full);
    const Bytes progressive = [&] {
        Bytes b = full;
        b[Find(b, 0xFF, 0xC0) + 1] = 0xC2;
        return b;
    }();
    const Bytes adobeRgb =
        InsertAt(full, 2, {0xFF, 0xEE, 0x00, 0x0E, 'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 0});
    const Bytes fill = [&] {
        Bytes b = full;
        b.insert(b.begin() + static_cast<std::ptrdiff_t>(Find(b, 0xFF, 0xDB)), 0xFF);
        return b;
    }();
    const Bytes cut(full.begin(), full.end() - 40);
    const Bytes commentAfterScan = InsertAt(full, full.size() - 2, {0xFF, 0xFE, 0x00, 0x04, 0xFF, 0x00});
    const Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0};
    struct Row
    {
        const char* name;
        Bytes bytes;
        std::vector<std::string> reasons;
    } rows[] = {
        {"4:4:4 at any width", Encode(600, 16, JpegChroma::Full), {}},
        {"4:2:0 at a width of an even count of 8-pixel columns", Encode(608, 16, JpegChroma::Halved), {}},
        {"4:2:0 at 601 (76 columns of 8)", Encode(601, 16, JpegChroma::Halved), {}},
        {"4:2:0 at 600 shears", Encode(600, 16, JpegChroma::Halved), {"4:2:0 at width 600"}},
        {"4:2:0 at 1080 shears", Encode(1080, 16, JpegChroma::Halved), {"4:2:0 at width 1080"}},
        {"progressive", progressive, {"progressive"}},
        {"Adobe RGB", adobeRgb, {"RGB"}},
        {"fill byte before a marker", fill, {"fill bytes between segments"}},
        {"no end", cut, {"cut short (no end marker)"}},
        {"comment after the scan", commentAfterScan, {"segments after the scan"}},
        {"EXIF orientation 6", InsertAt(full, 2, ExifSegment(6)), {"EXIF orientation 6"}},
        {"EXIF orientation 1", InsertAt(full, 2, ExifSegment(1)), {}},
        {"PNG", png, {"PNG"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const PlayerPhotoCheck check = CheckPlayerPhoto(row.bytes);
        EXPECT_EQ(check.reasons, row.reasons);
        EXPECT_EQ(PlayerShowsAsIs(row.bytes), row.reasons.empty());
    }
}

TEST(PlayerPhotoCheck, NoPrefixOfAPhotoPassesAsWhole)
{
    const Bytes full = Encode(24, 16, platform::JpegChroma::Full);
    ASSERT_TRUE(PlayerShowsAsIs(full));
    for (std::size_t size = 0; size < full.size(); ++size) {
        SCOPED_TRACE(size);
        const Bytes prefix(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(CheckPlayerPhoto(prefix).reasons.empty());
        EXPECT_EQ(MoveScanOffChunkEdges(prefix), size < 2 ? Bytes{} : prefix);
    }
}

// The player reads photos in 64 KiB chunks and misses a stuffed 0xFF 0x00 pair split by a chunk's end.
TEST(PlayerPhotoCheck, MovesAStuffedPairOffTheChunkEdgeWithoutChangingPixels)
{
    const Bytes original = Encode(240, 200, platform::JpegChroma::Full, 7);
    ASSERT_GT(original.size(), std::size_t{70000});
    ASSERT_TRUE(CheckPlayerPhoto(original).ShowsAsIs());
    // Pad before the scan so that the first stuffed pair past 64 KiB starts on the chunk's last byte.
    const std::size_t scan = Find(original, 0xFF, 0xDA);
    std::size_t pair = 0xFFFF - 30000;
    while (pair < 0xFFFF - 4 && !(original[pair] == 0xFF && original[pair + 1] == 0x00))
        ++pair;
    ASSERT_LT(pair, 0xFFFFu - 4);
    const std::size_t shift = 0xFFFF - pair;
    Bytes padding = {0xFF, 0xFE, static_cast<std::uint8_t>((shift - 2) >> 8),
                     static_cast<std::uint8_t>(shift - 2)};
    padding.resize(shift, 0);
    const Bytes split = InsertAt(original, scan, padding);
    ASSERT_EQ(split[0xFFFF], 0xFF);
    ASSERT_EQ(split[0x10000], 0x00);
    EXPECT_TRUE(CheckPlayerPhoto(split).pairOnChunkEdge);

    // The misread pair may also end in a corruption the player gives up on: that fails the photo here.
    platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::FailPhoto);
    auto decode = [](const Bytes& bytes) {
        Photo photo;
        if (DecodePhoto(photo, bytes) != 1 || photo.Bitmap() == nullptr)
            return Bytes{};
        const auto pixels = photo.Bitmap()->Pixels();
        return Bytes(pixels.begin(), pixels.end());
    };
    const Bytes expected = decode(original);
    ASSERT_FALSE(expected.empty());
    EXPECT_NE(decode(split), expected) << "the player should misread the split pair";
    const Bytes mended = MoveScanOffChunkEdges(split);
    EXPECT_FALSE(CheckPlayerPhoto(mended).pairOnChunkEdge);
    EXPECT_TRUE(CheckPlayerPhoto(mended).ShowsAsIs());
    EXPECT_EQ(decode(mended), expected);
    EXPECT_EQ(MoveScanOffChunkEdges(original), original);
}

} // namespace
} // namespace lumenar::codec
