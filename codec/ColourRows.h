#pragma once

#include "codec/PhotoBitmap.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace lumenar::codec {

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

/// Converts the leading pixels of one row, sixteen at a time, computing the colour terms
/// trunc((c - 128) * factor) with exact fixed-point products instead of the tables. Pixel x takes
/// chroma sample x (h = 1) or (x + 1) / 2 (h = 2); the rows must hold `width` luma samples and the
/// chroma samples the last pixel takes. Returns how many pixels it converted (the rest are left to
/// the caller). Only call when platform::HasSse2() and ColourRowsSse2Built().
std::size_t ConvertRowSse2(const std::uint8_t* yRow, const std::uint8_t* cbRow, const std::uint8_t* crRow,
                           std::uint8_t* out, std::size_t width, int h);

/// True when this build carries ConvertRowSse2.
bool ColourRowsSse2Built();

/// ConvertRowSse2 thirty-two pixels at a time (it leaves more pixels to the caller). Only call when
/// platform::HasAvx2() and ColourRowsAvx2Built().
std::size_t ConvertRowAvx2(const std::uint8_t* yRow, const std::uint8_t* cbRow, const std::uint8_t* crRow,
                           std::uint8_t* out, std::size_t width, int h);

/// True when this build carries ConvertRowAvx2.
bool ColourRowsAvx2Built();

} // namespace lumenar::codec
