#include "codec/Photo.h"

#include "platform/CorruptPhotoPolicy.h"
#include "platform/InMemoryPictures.h"
#include "tests/support/JpegWriter.h"
#include "tests/support/ReferenceJpeg.h"
#include "tests/support/WriteFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

namespace lumenar::codec {
namespace {

namespace fs = std::filesystem;

using testing::ReadFile;

// Runs a shell command; a missing tool fails the test loudly.
void RunTool(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0)
        << "command failed (is the tool installed? scripts/install-deps): " << command;
}

// PSNR over the colour bytes of every pixel; ours is bottom-up, `expected` top-down BGRX.
double Psnr(const Photo& photo, int w, int h, const std::vector<std::uint8_t>& expected)
{
    const auto pixels = photo.Bitmap()->Pixels();
    double squared = 0;
    for (int y = 0; y < h; ++y) {
        const std::uint8_t* ours = pixels.data() + static_cast<std::size_t>(h - 1 - y) * w * 4;
        const std::uint8_t* theirs = expected.data() + static_cast<std::size_t>(y) * w * 4;
        for (int x = 0; x < w * 4; ++x) {
            if (x % 4 == 3)
                continue;
            const double d = ours[x] - theirs[x];
            squared += d * d;
        }
    }
    const double mse = squared / (3.0 * w * h);
    return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

// libjpeg's samples (box-replicated chroma) with our chroma lead applied: pixel x takes the chroma of
// the pixel that starts sample (x + 1) / 2 (the row's last pixel where that is past the row), converted
// with the rounded JFIF formulas.
std::vector<std::uint8_t> WithChromaLead(const testing::ReferencePicture& ycc, int h)
{
    const int w = ycc.width;
    std::vector<std::uint8_t> out(static_cast<std::size_t>(w) * ycc.height * 4);
    for (int y = 0; y < ycc.height; ++y) {
        for (int x = 0; x < w; ++x) {
            const int chromaX = h == 2 ? std::min(2 * ((x + 1) / 2), w - 1) : x;
            const std::uint8_t* luma = ycc.bgrx.data() + (static_cast<std::size_t>(y) * w + x) * 3;
            const std::uint8_t* chroma = ycc.bgrx.data() + (static_cast<std::size_t>(y) * w + chromaX) * 3;
            const double Y = luma[0], cb = chroma[1] - 128.0, cr = chroma[2] - 128.0;
            const double bgr[3] = {Y + 1.772 * cb, Y - 0.344136 * cb - 0.714136 * cr, Y + 1.402 * cr};
            std::uint8_t* o = out.data() + (static_cast<std::size_t>(y) * w + x) * 4;
            for (int c = 0; c < 3; ++c)
                o[c] = static_cast<std::uint8_t>(std::clamp(std::lround(bgr[c]), 0L, 255L));
        }
    }
    return out;
}

// True when an entropy-coded 0xFF 0x00 pair straddles a boundary of the decoder's 64 KiB chunks.
bool HasStuffedPairAcrossChunks(const std::vector<std::uint8_t>& bytes)
{
    for (std::size_t end = kPhotoChunkCapacity; end < bytes.size(); end += kPhotoChunkCapacity) {
        if (bytes[end - 1] == 0xFF && bytes[end] == 0x00)
            return true;
    }
    return false;
}

struct Source
{
    const char* name;
    const char* magick; // ImageMagick arguments that draw it.
    bool subsample; // False where h = 2 reads luma rows at the shorter stride (width not a multiple of 16).
    bool noisy = false;
};

struct Sampling
{
    const char* name;
    const char* cjpeg;
    int h;
    double minPsnrLibjpeg;
};

// Photos drawn by ImageMagick and encoded by Debian's cjpeg, decoded by us (both paths) and by
// libjpeg-turbo's fast integer transform without fancy upsampling. The differences we expect:
//  - both transforms are the same scaled AAN factorisation; ours keeps 16-bit high-half products where
//    libjpeg keeps 8 fraction bits, and they round differently: on the order of one level per sample,
//    more on sharp edges at quality 100 (libjpeg's own fast and float transforms differ by 44 dB there);
//  - our colour conversion truncates each chroma term toward zero, libjpeg rounds: at most one level;
//  - with h = 2 our pixel x takes chroma sample (x + 1) / 2 where libjpeg takes x / 2.
// Against libjpeg's picture the bound is therefore loose for subsampled photos (the lead moves every odd
// column's colour). Against libjpeg's samples with our lead applied, every sampling must be as close as
// 4:4:4: a chroma position off by one in either direction, a wrong colour table or a wrong quantisation
// index falls far below kMinPsnrSameLayout (measured: 36.3 dB worst, checkerboard at quality 100;
// with chroma sample x / 2 or x / 2 + 1 instead, the subsampled text photo falls to 32.3 and 31.6 dB,
// from 45.2 dB).
constexpr double kMinPsnrSameLayout = 34.0;

TEST(DecodePhoto, RealEncoderOutputMatchesLibjpeg)
{
    // A fresh folder per run: other checkouts may run this test at the same time.
    const fs::path dir =
        fs::temp_directory_path() / ("lumenar-photo-test-" + std::to_string(std::random_device{}()));
    fs::create_directories(dir);
    const Source sources[] = {
        {"plasma-800x600", "-size 800x600 -seed 7 plasma:fractal", true},
        {"gradient-1021x767", "-size 1021x767 gradient:navy-orange", true},
        // The font file comes from fonts-liberation (scripts/install-deps): ImageMagick has no font of its
        // own.
        {"text-320x240",
         "-size 320x240 xc:white -font /usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf -fill "
         "blue -pointsize 36 -draw \"text 20,120 'Lumenar 123'\"",
         true},
        {"noise-64x33", "-size 64x33 -seed 3 xc:gray +noise Random", true, true},
        {"checker-17x9", "-size 17x9 pattern:checkerboard -fill red -draw 'rectangle 2,2 9,6'", false},
    };
    const Sampling samplings[] = {
        {"444", "-sample 1x1,1x1,1x1", 1, 34.0},
        {"422", "-sample 2x1,1x1,1x1", 2, 30.0},
        {"420", "-sample 2x2,1x1,1x1", 2, 30.0},
    };
    const int qualities[] = {50, 85, 100};
    const char* restarts[] = {"", "-restart 1"};
    for (const Source& source : sources) {
        const fs::path ppm = dir / (std::string(source.name) + ".ppm");
        RunTool(std::string("convert ") + source.magick + " -depth 8 ppm:" + ppm.string());
        for (const Sampling& sampling : samplings) {
            if (sampling.h != 1 && !source.subsample)
                continue;
            for (int quality : qualities) {
                // libjpeg's fast transform overflows on noise at quality 100: it is 24.7 dB from the
                // drawn picture there, ours 48.7 dB, so it is no reference for that photo.
                if (source.noisy && quality == 100)
                    continue;
                for (const char* restart : restarts) {
                    const std::string name = std::string(source.name) + "-" + sampling.name + "-q" +
                                             std::to_string(quality) + (*restart != 0 ? "-restart" : "");
                    SCOPED_TRACE(name);
                    const fs::path jpg = dir / (name + ".jpg");
                    RunTool(std::string("cjpeg -quality ") + std::to_string(quality) + " " + sampling.cjpeg +
                            " " + restart + " -outfile " + jpg.string() + " " + ppm.string());
                    const auto bytes = ReadFile(jpg);
                    const auto reference = testing::DecodeWithLibjpeg(bytes);
                    const auto samples =
                        testing::DecodeWithLibjpeg(bytes, nullptr, testing::ReferenceColours::YCbCr);
                    ASSERT_TRUE(reference.has_value() && samples.has_value());
                    const auto sameLayout = WithChromaLead(*samples, sampling.h);
                    // Such a pair is not unstuffed (tested on its own); feed these photos in one chunk.
                    const std::uint32_t chunk = HasStuffedPairAcrossChunks(bytes)
                                                    ? static_cast<std::uint32_t>(bytes.size())
                                                    : kPhotoChunkCapacity;
                    for (IdctPath path : {IdctPath::Fast, IdctPath::Portable}) {
                        Photo photo;
                        ASSERT_EQ(DecodePhoto(photo, bytes, {.idct = path, .chunkCapacity = chunk}), 1);
                        ASSERT_EQ(photo.Width(), reference->width);
                        ASSERT_EQ(photo.Height(), reference->height);
                        const double psnr = Psnr(photo, reference->width, reference->height, reference->bgrx);
                        const double psnrSame = Psnr(photo, reference->width, reference->height, sameLayout);
                        std::printf("%-36s %-8s %6.2f dB vs libjpeg, %6.2f dB vs libjpeg with the lead\n",
                                    name.c_str(), path == IdctPath::Fast ? "fast" : "portable", psnr,
                                    psnrSame);
                        EXPECT_GE(psnr, sampling.minPsnrLibjpeg);
                        EXPECT_GE(psnrSame, kMinPsnrSameLayout);
                        if (path == IdctPath::Fast) {
                            // The fast bit reader and paired transforms against the 32-bit register
                            // and one block at a time: the same bytes exactly, also with chunks that
                            // cut the scan every few hundred bytes.
                            // A small chunk splits stuffed pairs, which damages the scan: the photo may
                            // then fail, but both readers must fail alike.
                            for (std::uint32_t registerChunk : {chunk, 333u}) {
                                Photo viaRegister, viaFast;
                                const int registerResult = DecodePhoto(viaRegister, bytes,
                                                                       {.idct = path,
                                                                        .bitReader = BitReader::Register,
                                                                        .pairBlocks = false,
                                                                        .chunkCapacity = registerChunk});
                                ASSERT_EQ(DecodePhoto(viaFast, bytes,
                                                      {.idct = path, .chunkCapacity = registerChunk}),
                                          registerResult);
                                if (registerResult == 0)
                                    continue;
                                const auto a = viaFast.Bitmap()->Block(), b = viaRegister.Bitmap()->Block();
                                EXPECT_TRUE(std::equal(a.begin(), a.end(), b.begin(), b.end()))
                                    << "chunk " << registerChunk;
                            }
                        }
                    }
                }
            }
        }
    }
    fs::remove_all(dir);
}

TEST(DecodePhoto, InMemoryNamesResolveOnlyThroughTheRegistry)
{
    const auto bytes = testing::MakeUniformPhoto(16, 8, testing::DcBlock(80));
    const auto name = platform::RegisterInMemoryPicture(bytes);
    const std::string length = std::to_string(name.length), address = std::to_string(name.address);
    struct Row
    {
        std::string source;
        int result;
    };
    const Row rows[] = {
        {length + "\\" + address, 1},
        {length + "\\" + address + ".jpg", 1},
        {"C:" + length + "\\" + address, 1},
        {std::to_string(name.length - 5) + "\\" + address, 1}, // A prefix of the block: the data end early.
        {std::to_string(name.length + 1) + "\\" + address, 0}, // Longer than the block.
        {length + "\\" + std::to_string(name.address + 1), 0}, // Not a registered address.
        {length + "\\x" + address, 0},
        {"", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.source);
        Photo photo;
        EXPECT_EQ(DecodePhoto(photo, row.source), row.result);
    }
    EXPECT_TRUE(platform::ReleaseInMemoryPicture(name.address));
    Photo photo;
    EXPECT_EQ(DecodePhoto(photo, length + "\\" + address), 0) << "released";
}

TEST(Photo, CopiesAPackedBitmap)
{
    Photo photo;
    ASSERT_EQ(DecodePhoto(photo, testing::MakeUniformPhoto(12, 5, testing::DcBlock(80))), 1);
    EXPECT_EQ(photo.Width(), 12);
    EXPECT_EQ(photo.Height(), 5);
    const PackedDib dib = photo.CopyPackedDib();
    ASSERT_TRUE(dib);
    ASSERT_EQ(dib.size, 40u + 12 * 5 * 4);
    EXPECT_EQ(0, std::memcmp(dib.bytes.get(), photo.Bitmap()->Block().data() + 14, dib.size));
    EXPECT_EQ(dib.bytes[42], 138 + 14); // Red: luma 138, Cr 138 adds trunc(10 * 1.402).
    EXPECT_FALSE(Photo().CopyPackedDib());
}

} // namespace
} // namespace lumenar::codec
