#pragma once

#include <cstdint>
#include <vector>

namespace lumenar::effects {

// Picture transitions drawn line by line in integer arithmetic. Each follows the picture-effect
// protocol: it renders for 3 and every code above 4, ignores the others, and shows the target whole at
// full progress.

/// A pinch crosses the picture from the top edge to the bottom: the rows near it are squeezed towards
/// the vertical centre line, the source below it narrowing into it and the target above it widening out
/// of it, with black beside the squeezed rows. Writes only the colour bytes: the output's fourth byte
/// keeps what it held. Keeps no state.
std::int32_t SqueezeThrough(std::uint32_t message, void* params);

/// One-pixel diagonal lines, ordered from a bottom corner, shrink to nothing about the picture's other
/// diagonal, switch from the source to the target and grow back, one after the other as a wave passes.
/// Init makes the wave's profile and draws one bit from the effects' generator that mirrors the whole
/// effect left to right; both are kept until release. A render without a matching init draws only the
/// ends (progress 0 or full) and leaves the output alone otherwise; so does every render of pictures
/// whose width and height add up to more than 65537 (far beyond any screen), for which init keeps
/// nothing.
std::int32_t DiagonalFlipWave(std::uint32_t message, void* params);

/// One row of the squeeze: the whole of `from` (w pixels) sampled at the centres of the w − 2 × inset
/// pixels between the insets of `out`, and the `inset` pixels on each side turned black. Only the colour
/// bytes are written; `inset` is at most w / 2. Portable form.
void SqueezeRowPortable(const std::uint32_t* from, std::uint32_t* out, std::int32_t w, std::int32_t inset);
/// The same with SSE2, bit for bit. Only worth calling when SqueezeRowSse2Built() and
/// platform::Simd().sse2; a build without SSE2 makes it the portable form.
bool SqueezeRowSse2Built();
void SqueezeRowSse2(const std::uint32_t* from, std::uint32_t* out, std::int32_t w, std::int32_t inset);

/// The flip wave's profile for a wave of `n` lines: n + 1 scales in 16.16 (65536 is the line's whole
/// length), 65536 at both ends falling to (about) 0 in the middle. A non-positive `n` gives the one
/// entry 65536.
std::vector<std::int32_t> FlipWaveProfile(std::int32_t n);

} // namespace lumenar::effects
