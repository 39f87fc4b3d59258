#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace lumenar::codec {

enum class ColourPath;

/// A picture block larger than this is treated like memory that cannot be had.
inline constexpr std::size_t kMaxPictureBytes = std::size_t{1} << 30;

/// One decoded photo's picture: a single zero-initialised block holding a 14-byte file header, a 40-byte
/// information header and 32-bit BGRX pixels, bottom row first, rows of exactly 4 × width bytes. The
/// block is a complete .bmp file. Also carries the colour tables the conversion uses.
class PhotoBitmap
{
public:
    static constexpr std::size_t kFileHeaderSize = 14;
    static constexpr std::size_t kInfoHeaderSize = 40;
    static constexpr std::size_t kPixelOffset = kFileHeaderSize + kInfoHeaderSize;

    /// Sets the size and builds the colour tables; no picture memory yet. Negative sizes count as 0.
    PhotoBitmap(int width, int height, std::size_t maxPictureBytes = kMaxPictureBytes);

    int Width() const { return width_; }
    int Height() const { return height_; }
    /// 32 once the picture is filled, 0 when its memory could not be had.
    int BitCount() const { return bitCount_; }
    /// The whole block (headers and pixels); empty before a successful conversion.
    std::span<const std::uint8_t> Block() const { return {block_.get(), size_}; }
    std::span<const std::uint8_t> InfoHeader() const;
    std::span<const std::uint8_t> Pixels() const;

    /// Chroma contributions, trunc((x - 128) * factor) in double precision: the conversion adds them to
    /// the luma byte before clamping (the player's 16.16 tables without the fraction, which is always 0).
    std::array<std::int32_t, 256> blueFromCb{};
    std::array<std::int32_t, 256> greenFromCb{};
    std::array<std::int32_t, 256> greenFromCr{};
    std::array<std::int32_t, 256> redFromCr{};

private:
    friend int ConvertToDib(PhotoBitmap&, std::span<const std::uint8_t>, std::span<const std::uint8_t>,
                            std::span<const std::uint8_t>, int, int);
    friend int ConvertToDibWith(PhotoBitmap&, std::span<const std::uint8_t>, std::span<const std::uint8_t>,
                                std::span<const std::uint8_t>, int, int, ColourPath);

    std::unique_ptr<std::uint8_t[]> block_;
    std::size_t size_ = 0;
    int bitCount_ = 0;
    int width_ = 0;
    int height_ = 0;
    std::size_t maxPictureBytes_ = kMaxPictureBytes;
};

/// Converts the luma and chroma planes to the bitmap's pixels (allocating its block; an old block is
/// freed first). `h` and `v` are the luma sampling factors. Returns 1, or 0 when the block cannot be
/// had: the bitmap is then empty (DecodePhoto reports it as "Unable to allocate DIB memory").
///
/// Compatibility: luma rows are read (width + 7) & ~7 bytes apart and chroma rows that divided by h,
/// and with h = 2 pixel x takes chroma sample (x + 1) / 2, a half-sample lead that existing photos were
/// judged by. A read that would fall past the end of a plane takes that plane's last sample instead.
int ConvertToDib(PhotoBitmap& bitmap, std::span<const std::uint8_t> yPlane,
                 std::span<const std::uint8_t> cbPlane, std::span<const std::uint8_t> crPlane, int h, int v);

} // namespace lumenar::codec
