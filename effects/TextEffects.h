#pragma once

#include "effects/EffectProtocol.h"

#include <cstdint>

namespace lumenar::effects {

// Text-effect procedures. Each takes a TextEffectParams: EffectInit builds the caption's state (returns
// 0, or -1 when its font or sheets cannot be made; the caption then draws nothing), EffectRelease frees
// it (from the block's `text` alone), codes 2 and 4 return 0, and every render draws the caption's glyphs
// for the progress into `dcBits`. A render without a state draws nothing. Playback thread only.

/// Nothing before half time, then the whole caption.
std::int32_t TextShowAtHalf(std::uint32_t message, void* params);
/// Glyphs fade in one after another along the row's direction (0x10 up, 0x01 down, 0x04 left, 0x40 right).
std::int32_t TextFadeSweep(std::uint32_t message, void* params);
/// The whole caption flies in from the edge the direction names and slows down as it arrives.
std::int32_t TextFlyIn(std::uint32_t message, void* params);
/// Glyphs ride in on one moving line from the entry edge, each stopping at its place, while fading in.
std::int32_t TextGlyphStream(std::uint32_t message, void* params);
/// Glyphs fly in one after another in a fixed shuffled order (variant 1) or by their line field.
std::int32_t TextGlyphScatter(std::uint32_t message, void* params);
/// Glyphs fade in in order; by variant they keep their size (0), grow into place (1, 2) or shrink into
/// place (3, 4), variants 2 and 4 also spreading from the caption's centre.
std::int32_t TextGlyphGrow(std::uint32_t message, void* params);

} // namespace lumenar::effects
