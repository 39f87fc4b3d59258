#pragma once

#include "effects/EffectProtocol.h"

#include <cstdint>

namespace lumenar::effects {

// More text-effect procedures, with the protocol of TextEffects.h: EffectInit builds the caption's state
// (0, or -1 when its font or sheets cannot be made), EffectRelease frees it from the block's `text` alone,
// codes 2 and 4 return 0, and every render draws the caption for the progress into `dcBits`. At full
// progress each leaves every glyph at its place, opaque, at its own size and upright. Playback thread only.

/// Letters fade in: variant 1 all together and quickly, 0 all together and slowly (starting faint and
/// gathering), 2 one by one in a random order drawn at init, 3 one after another in reading order, each
/// finished before the next begins. Another variant draws only the finished caption at the end.
std::int32_t TextEffect05(std::uint32_t message, void* params);
/// Typewriter: glyphs appear whole, one by one in reading order; each lands with a short strike (a
/// little larger and lighter) before it settles.
std::int32_t TextEffect13(std::uint32_t message, void* params);
/// Letters drop: one after another each falls from above the picture, faster and faster, onto its place.
std::int32_t TextEffect14(std::uint32_t message, void* params);
/// The caption opens from its centre line: direction 0x44 widens a band of columns towards the sides,
/// 0x11 a band of rows towards the top and bottom. Another direction shows only the finished caption.
std::int32_t TextEffect23(std::uint32_t message, void* params);
/// Letters spin in: one after another each turns a full turn into place while growing and fading in.
std::int32_t TextEffect25(std::uint32_t message, void* params);
/// The whole caption zooms into place about its centre while fading in: variant 0 from four times its
/// size, variant 1 from nothing. Another variant shows only the finished caption.
std::int32_t TextEffect26(std::uint32_t message, void* params);
/// Letters bounce in: one after another each drops from a little above its place and bounces to rest.
std::int32_t TextEffect28(std::uint32_t message, void* params);
/// Letters flip in: one after another each turns like a card about its upright axis, edge on, back face
/// (mirrored, dimmer), edge on again, then its face.
std::int32_t TextEffect32(std::uint32_t message, void* params);
/// Letters wave: a wave runs from left to right; each glyph rises with it from below its place, swings
/// past it and settles.
std::int32_t TextEffect35(std::uint32_t message, void* params);

} // namespace lumenar::effects
