#pragma once

#include "effects/EffectProtocol.h"

#include <cstdint>

namespace lumenar::effects {

// Text procedures that move, turn, scale, blur or light each glyph on its own. Each takes a
// TextEffectParams and follows the text procedures' protocol (see TextEffects.h): EffectInit builds the
// caption's state (and what the procedure fixes once per caption), EffectRelease frees it, codes 2 and 4
// return 0, and a render draws every glyph for the progress; at full progress every glyph rests at its
// place, opaque, upright and at its own size. A direction or variant that no row of the procedure uses
// draws nothing. Playback thread only.

/// Glyphs unfold one after another about their centres: vertically (variant 0) or sideways (variant 1).
std::int32_t TextEffect36(std::uint32_t message, void* params);
/// Glyphs travel a short way into place one after another while fading in: up (0x01), down (0x10),
/// leftwards (0x40) or rightwards (0x04).
std::int32_t TextEffect38(std::uint32_t message, void* params);
/// Glyphs come into focus one after another, from a strong blur to sharp.
std::int32_t TextEffect42(std::uint32_t message, void* params);
/// Glyphs spin into place one after another: growing from nothing (variant 0) or shrinking from large
/// and turning the other way (variant 1).
std::int32_t TextEffect43(std::uint32_t message, void* params);
/// Glyphs pop up one after another, overshooting their size and settling.
std::int32_t TextEffect45(std::uint32_t message, void* params);
/// The caption fades in while every glyph jitters about its place, calming down to rest.
std::int32_t TextEffect46(std::uint32_t message, void* params);
/// Glyphs fade in one after another inside a soft halo of light that swells and dies away.
std::int32_t TextEffect47(std::uint32_t message, void* params);
/// Glyphs appear in a random order, each with a white flash and a star of light.
std::int32_t TextEffect48(std::uint32_t message, void* params);
/// Glyphs roll along their baseline into place, from the right (0x04) or from the left (0x40).
std::int32_t TextEffect49(std::uint32_t message, void* params);
/// Glyphs swing into place on a hinge at their top, from the right (0x04) or from the left (0x40).
std::int32_t TextEffect51(std::uint32_t message, void* params);

} // namespace lumenar::effects
