#pragma once

#include "base/Result.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <vector>

namespace lumenar::records {

/// The 40-byte device-independent bitmap header.
struct BitmapInfoHeader
{
    std::uint32_t biSize;         ///< 0: 40.
    std::int32_t biWidth;         ///< 4: pixels.
    std::int32_t biHeight;        ///< 8: positive: rows stored bottom-up.
    std::uint16_t biPlanes;       ///< 12: 1.
    std::uint16_t biBitCount;     ///< 14: 32 for frames.
    std::uint32_t biCompression;  ///< 16: 0, uncompressed RGB.
    std::uint32_t biSizeImage;    ///< 20: width × height × 4.
    std::int32_t biXPelsPerMeter; ///< 24
    std::int32_t biYPelsPerMeter; ///< 28
    std::uint32_t biClrUsed;      ///< 32: 0.
    std::uint32_t biClrImportant; ///< 36: 0.
};
static_assert(sizeof(BitmapInfoHeader) == 40);
static_assert(offsetof(BitmapInfoHeader, biSizeImage) == 20);
static_assert(offsetof(BitmapInfoHeader, biClrImportant) == 36);

/// The header with its one unused colour entry (44 bytes).
struct DibInfo
{
    BitmapInfoHeader header;
    std::uint8_t unusedColour[4]; ///< 40: never read.
};
static_assert(sizeof(DibInfo) == 44);
static_assert(std::is_trivially_copyable_v<DibInfo>);

/// A mutable view of 32-bit BGRX pixels: bottom row first, rows of exactly width × 4 bytes.
struct Bgrx32View
{
    std::uint8_t* bits = nullptr;
    int width = 0;
    int height = 0;

    /// Byte offset of pixel (x, y), y counted from the top of the screen.
    std::size_t Offset(int x, int y) const
    {
        return (static_cast<std::size_t>(height - 1 - y) * static_cast<std::size_t>(width) +
                static_cast<std::size_t>(x)) *
               4;
    }
    std::size_t SizeBytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    }
};

/// Frame sizes beyond this many pixels are refused (the largest screen we expect, with room to spare).
inline constexpr std::int64_t kMaxFramePixels = 16384LL * 16384LL;

/// One frame-sized picture of 32 bits per pixel (blue, green, red, unused), rows bottom-up with no
/// padding. Owns its pixels. The compositor and every effect work on it.
class DibImage
{
public:
    /// Makes a zeroed picture. `pelsPerMeter` is 100 for output and display pictures, 0 for source
    /// and target ones. InvalidInput for non-positive sizes, TooLarge past kMaxFramePixels.
    static base::Result<DibImage> Create(int width, int height, std::int32_t pelsPerMeter);

    const DibInfo& Info() const { return info_; }
    int Width() const { return info_.header.biWidth; }
    int Height() const { return info_.header.biHeight; }
    std::uint8_t* Bits() { return pixels_.data(); }
    const std::uint8_t* Bits() const { return pixels_.data(); }
    std::span<std::uint8_t> Bytes() { return pixels_; }
    std::span<const std::uint8_t> Bytes() const { return pixels_; }
    Bgrx32View View() { return {pixels_.data(), Width(), Height()}; }

private:
    DibInfo info_{};
    std::vector<std::uint8_t> pixels_;
};

} // namespace lumenar::records
