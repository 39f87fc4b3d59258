#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace lumenar::records {

/// One laid-out character of a caption (20 bytes).
struct Glyph
{
    std::uint16_t code; ///< 0: the byte, or lead × 256 + trail for a double-byte character.
    std::uint16_t line; ///< 2: line index; one text effect uses it as the glyph's start time.
    std::int32_t gx;    ///< 4: cell offset from the caption's x, after alignment.
    std::int32_t gy;    ///< 8: baseline offset from the caption's y.
    std::int32_t cw;    ///< 12: cell width.
    std::int32_t ch;    ///< 16: cell height.
};
static_assert(sizeof(Glyph) == 20);
static_assert(std::is_trivially_copyable_v<Glyph>);
static_assert(offsetof(Glyph, gx) == 4);
static_assert(offsetof(Glyph, ch) == 16);

/// Glyphs per caption buffer (5120 bytes); the film format keeps captions within it.
inline constexpr std::size_t kGlyphBufferGlyphs = 256;
/// Captions of one item that get a glyph buffer.
inline constexpr std::size_t kMaxCaptionsPerItem = 10;

} // namespace lumenar::records
