#pragma once

#include <cstdint>

namespace lumenar::effects {

// The warping picture transitions. Each follows the picture-effect protocol: init builds the tables the
// frames need (a render without a matching init draws only the two ends), every code of 3 and above 4
// renders from source, target and progress alone, release frees the tables. Every sample is taken from
// inside the picture, and the target shows whole at full progress. Their state belongs to the one
// playback thread that runs a transition's init, frames and release.

/// The source winds up about the centre, most at the centre and not at all past a radius, and the
/// target unwinds into place; the two cross over around half time. Each use takes the next of a fixed
/// list of presets (turns, sense, radius), advanced at every release and shared by the process.
std::int32_t Swirl(std::uint32_t message, void* params);
/// The same swirl in each quarter of the picture, with its own fixed turns and senses; no presets.
std::int32_t SwirlQuarters(std::uint32_t message, void* params);

/// Spiral arms sweep round the centre, uncovering the target; each picture curls along the arms where
/// they pass. Each use takes the next of a fixed list of presets (arms, turns, width), advanced at every
/// release and shared by the process.
std::int32_t Spiral(std::uint32_t message, void* params);
/// The same spiral in each quarter of the picture, with its own fixed arms and turns; no presets.
std::int32_t SpiralQuarters(std::uint32_t message, void* params);

/// Concentric ripples run out from the centre, carrying the target in behind their front.
std::int32_t Ripple(std::uint32_t message, void* params);

/// The source runs down the picture in uneven columns, each with its own start and speed drawn from
/// the effects' generator at init, uncovering the target behind it.
std::int32_t Melt(std::uint32_t message, void* params);

/// How many presets the swirl and the spiral go through before they repeat.
inline constexpr int kSwirlPresetCount = 13;
inline constexpr int kSpiralPresetCount = 14;

} // namespace lumenar::effects
