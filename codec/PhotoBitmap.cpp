#include "codec/PhotoBitmap.h"

#include "codec/ColourRows.h"

#include "base/Checked.h"
#include "platform/Memory.h"
#include "platform/Cpu.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

namespace lumenar::codec {

namespace {

void PutU16(std::uint8_t* at, std::uint32_t value)
{
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8);
}

void PutU32(std::uint8_t* at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

inline std::uint8_t Clamp255(int value)
{
    return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

// Values -256..511 (offset by 256) clamped to 0..255; every sum of a luma byte and a colour table entry
// falls in that range.
constexpr std::array<std::uint8_t, 768> kClamp = [] {
    std::array<std::uint8_t, 768> table{};
    for (int i = 0; i < 768; ++i)
        table[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(std::clamp(i - 256, 0, 255));
    return table;
}();

// The chroma sample pixel x reads along a row: the position advances after a pixel when h is 1 or
// when (x + 1) is not a multiple of h.
inline std::size_t ChromaColumn(std::size_t x, std::size_t h)
{
    return h == 1 ? x : x - x / h;
}

} // namespace

PhotoBitmap::PhotoBitmap(int width, int height, std::size_t maxPictureBytes)
    : width_(std::max(width, 0)), height_(std::max(height, 0)), maxPictureBytes_(maxPictureBytes)
{
    for (int x = 0; x < 256; ++x) {
        const double d = x - 128;
        blueFromCb[static_cast<std::size_t>(x)] = static_cast<std::int32_t>(d * 1.772);
        greenFromCb[static_cast<std::size_t>(x)] = -static_cast<std::int32_t>(d * 0.34414);
        greenFromCr[static_cast<std::size_t>(x)] = -static_cast<std::int32_t>(d * 0.71414);
        redFromCr[static_cast<std::size_t>(x)] = static_cast<std::int32_t>(d * 1.402);
    }
}

std::span<const std::uint8_t> PhotoBitmap::InfoHeader() const
{
    if (size_ == 0)
        return {};
    return {block_.get() + kFileHeaderSize, kInfoHeaderSize};
}

std::span<const std::uint8_t> PhotoBitmap::Pixels() const
{
    if (size_ == 0)
        return {};
    return {block_.get() + kPixelOffset, size_ - kPixelOffset};
}

int ConvertToDib(PhotoBitmap& bitmap, std::span<const std::uint8_t> yPlane,
                 std::span<const std::uint8_t> cbPlane, std::span<const std::uint8_t> crPlane, int h, int v)
{
    return ConvertToDibWith(bitmap, yPlane, cbPlane, crPlane, h, v, ColourPath::Auto);
}

int ConvertToDibWith(PhotoBitmap& bitmap, std::span<const std::uint8_t> yPlane,
                     std::span<const std::uint8_t> cbPlane, std::span<const std::uint8_t> crPlane, int h,
                     int v, ColourPath path)
{
    bitmap.block_.reset();
    bitmap.size_ = 0;
    bitmap.bitCount_ = 0;
    const auto width = static_cast<std::size_t>(bitmap.width_);
    const auto height = static_cast<std::size_t>(bitmap.height_);
    const std::optional<std::size_t> pixelBytes = base::CheckedMul(width * 4, height);
    std::unique_ptr<std::uint8_t[]> block;
    if (pixelBytes && *pixelBytes + PhotoBitmap::kPixelOffset <= bitmap.maxPictureBytes_)
        block =
            platform::TryAllocateUninitialisedArray<std::uint8_t>(*pixelBytes + PhotoBitmap::kPixelOffset);
    if (!block)
        return 0;
    const std::size_t total = *pixelBytes + PhotoBitmap::kPixelOffset;
    std::uint8_t* head = block.get();
    // The block reads as zero-initialised: the headers' unused fields are cleared here and every
    // pixel below is written whole, its fourth byte included.
    std::memset(head, 0, PhotoBitmap::kPixelOffset);
    head[0] = 'B';
    head[1] = 'M';
    PutU32(head + 2, static_cast<std::uint32_t>(total));
    PutU32(head + 10, PhotoBitmap::kPixelOffset);
    std::uint8_t* info = head + PhotoBitmap::kFileHeaderSize;
    PutU32(info + 0, PhotoBitmap::kInfoHeaderSize);
    PutU32(info + 4, static_cast<std::uint32_t>(width));
    PutU32(info + 8, static_cast<std::uint32_t>(height)); // Positive: bottom-up.
    PutU16(info + 12, 1);
    PutU16(info + 14, 32);
    PutU32(info + 20, static_cast<std::uint32_t>(*pixelBytes));
    std::uint8_t* pixels = head + PhotoBitmap::kPixelOffset;

    const std::size_t hh = static_cast<std::size_t>(std::max(h, 1));
    const std::size_t vv = static_cast<std::size_t>(std::max(v, 1));
    const std::size_t rowStride = (width + 7) & ~std::size_t{7};
    const std::size_t chromaStride = rowStride / hh;
    const std::int32_t* blueCb = bitmap.blueFromCb.data();
    const std::int32_t* greenCb = bitmap.greenFromCb.data();
    const std::int32_t* greenCr = bitmap.greenFromCr.data();
    const std::int32_t* redCr = bitmap.redFromCr.data();
    const std::size_t lastChroma = width == 0 ? 0 : ChromaColumn(width - 1, hh);
    // The whole-row path computes the standard colour terms rather than reading the tables.
    const PhotoBitmap standard(0, 0);
    const bool simd = path != ColourPath::Portable && (hh == 1 || hh == 2) && ColourRowsSse2Built() &&
                      platform::Simd().sse2 && bitmap.blueFromCb == standard.blueFromCb &&
                      bitmap.greenFromCb == standard.greenFromCb &&
                      bitmap.greenFromCr == standard.greenFromCr && bitmap.redFromCr == standard.redFromCr;
    const bool wide = simd && path == ColourPath::Auto && ColourRowsAvx2Built() && platform::Simd().avx2;

    for (std::size_t y = 0; y < height && width != 0; ++y) {
        const std::size_t yBase = y * rowStride;
        const std::size_t cBase = (y / vv) * chromaStride;
        std::uint8_t* out = pixels + (height - 1 - y) * width * 4;
        const bool inside = (yBase + width <= yPlane.size() && cBase + lastChroma < cbPlane.size() &&
                             cBase + lastChroma < crPlane.size());
        if (inside) {
            const std::uint8_t* yRow = yPlane.data() + yBase;
            const std::uint8_t* cbRow = cbPlane.data() + cBase;
            const std::uint8_t* crRow = crPlane.data() + cBase;
            // One pixel: three table reads for the clamps and one 32-bit store (byte 3 stays 0).
            auto put = [&](std::size_t x, int blue, int green, int red) {
                const int luma = yRow[x];
                const std::uint32_t pixel = static_cast<std::uint32_t>(kClamp[luma + blue + 256]) |
                                            static_cast<std::uint32_t>(kClamp[luma + green + 256]) << 8 |
                                            static_cast<std::uint32_t>(kClamp[luma + red + 256]) << 16;
                std::memcpy(out + 4 * x, &pixel, 4);
            };
            std::size_t x = 0;
            if (wide)
                x = ConvertRowAvx2(yRow, cbRow, crRow, out, width, static_cast<int>(hh));
            // The narrower form goes on where the wider one stopped (x is even, a whole chroma step).
            if (simd)
                x += ConvertRowSse2(yRow + x, cbRow + x / hh, crRow + x / hh, out + 4 * x, width - x,
                                    static_cast<int>(hh));
            if (hh == 2) {
                // Pixel 0 takes sample 0; pixels 2i - 1 and 2i share sample i.
                for (; x < width; ++x) {
                    const int cb = cbRow[(x + 1) / 2], cr = crRow[(x + 1) / 2];
                    put(x, blueCb[cb], greenCb[cb] + greenCr[cr], redCr[cr]);
                }
            } else if (hh == 1) {
                for (; x < width; ++x) {
                    const int cb = cbRow[x], cr = crRow[x];
                    put(x, blueCb[cb], greenCb[cb] + greenCr[cr], redCr[cr]);
                }
            } else {
                for (; x < width; ++x) {
                    const std::size_t cx = ChromaColumn(x, hh);
                    const int cb = cbRow[cx], cr = crRow[cx];
                    put(x, blueCb[cb], greenCb[cb] + greenCr[cr], redCr[cr]);
                }
            }
            continue;
        }
        // Only the last rows (or planes smaller than the picture) get here.
        auto sample = [](std::span<const std::uint8_t> plane, std::size_t index) -> int {
            if (plane.empty())
                return 0;
            return plane[std::min(index, plane.size() - 1)];
        };
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t cx = cBase + ChromaColumn(x, hh);
            const int luma = sample(yPlane, yBase + x);
            const int cb = sample(cbPlane, cx);
            const int cr = sample(crPlane, cx);
            out[4 * x + 0] = Clamp255(luma + blueCb[cb]);
            out[4 * x + 1] = Clamp255(luma + greenCb[cb] + greenCr[cr]);
            out[4 * x + 2] = Clamp255(luma + redCr[cr]);
            out[4 * x + 3] = 0;
        }
    }
    bitmap.block_ = std::move(block);
    bitmap.size_ = total;
    bitmap.bitCount_ = 32;
    return 1;
}

} // namespace lumenar::codec
