#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace lumenar::codec {

class PhotoBitmap;

/// How ConvertToDib computes its rows. Both give the same bytes.
enum class ColourPath
{
    Auto,     ///< AVX2 or SSE2 where the processor has it and the bitmap holds the standard tables.
    Sse2,     ///< As Auto, without AVX2.
    Portable, ///< The table look-ups, one pixel at a time.
};

/// ConvertToDib with the path chosen by the caller (tests compare the two).
int ConvertToDibWith(PhotoBitmap& bitmap, std::span<const std::uint8_t> yPlane,
                     std::span<const std::uint8_t> cbPlane, std::span<const std::uint8_t> crPlane, int h,
                     int v, ColourPath path);

/// trunc(d * factor) for a chroma difference d in -128..127, computed as the high half of
/// (|d| << shift) * multiplier with the sign put back: for each factor these pairs give exactly the
/// truncated double product for every |d| up to 128 (the tests compare all of them with the tables).
struct ColourFactor
{
    int shift;
    std::int16_t multiplier;
};
inline constexpr ColourFactor kBlueFromCb{5, 3629}; // 1.772
inline constexpr ColourFactor kGreenFromCb{5, 705}; // 0.34414
inline constexpr ColourFactor kGreenFromCr{6, 731}; // 0.71414
inline constexpr ColourFactor kRedFromCr{3, 11485}; // 1.402

/// Converts the leading pixels of one row, sixteen at a time, computing the colour terms
/// trunc((c - 128) * factor) with exact fixed-point products instead of the tables. Pixel x takes
/// chroma sample x (h = 1) or (x + 1) / 2 (h = 2); the rows must hold `width` luma samples and the
/// chroma samples the last pixel takes. Returns how many pixels it converted (the rest are left to
/// the caller). Only call when platform::Simd().sse2 and ColourRowsSse2Built().
std::size_t ConvertRowSse2(const std::uint8_t* yRow, const std::uint8_t* cbRow, const std::uint8_t* crRow,
                           std::uint8_t* out, std::size_t width, int h);

/// True when this build carries ConvertRowSse2.
bool ColourRowsSse2Built();

/// ConvertRowSse2 thirty-two pixels at a time (it leaves more pixels to the caller). Only call when
/// platform::Simd().avx2 and ColourRowsAvx2Built().
std::size_t ConvertRowAvx2(const std::uint8_t* yRow, const std::uint8_t* cbRow, const std::uint8_t* crRow,
                           std::uint8_t* out, std::size_t width, int h);

/// True when this build carries ConvertRowAvx2.
bool ColourRowsAvx2Built();

} // namespace lumenar::codec
