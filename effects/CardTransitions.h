#pragma once

#include <cstdint>

namespace lumenar::effects {

// The transitions that show the pictures as cards in space, drawn by the software renderer. Each
// follows the picture-effect protocol: init resamples the two pictures into textures (a render without
// a matching init makes them itself), every code of 3 and above 4 renders from source, target and
// progress alone, release frees the textures. Uncovered parts of the frame are black; progress 0 shows
// the source and full progress the target, exactly. The textures belong to the one playback thread
// that runs a transition's init, frames and release.

/// A card with the source on its face and the target on its back is tossed away from the eye and
/// turned over, coming back to fill the frame. By variant: 1 half a turn about the upright axis (sense
/// 0x04 against 0x40), 2 about the level axis (0x01 against 0x10), 3 the half turn with a whole
/// tumble end over end, 4 one and a half turns, 5 three and a half turns that slow down at the end.
std::int32_t Flip3D(std::uint32_t message, void* params);

/// The same turns as Flip3D, but the card turns where it stands, filling the frame, its near edge
/// swinging out of the picture; variant 2 turns about the level axis with sense 0x04 against 0x40.
std::int32_t TurnInPlace(std::uint32_t message, void* params);

/// The source turns about the centre of the frame (clockwise for 0x04, anticlockwise for 0x40) while it
/// falls away from the eye, uncovering the target.
std::int32_t RotateAway(std::uint32_t message, void* params);

} // namespace lumenar::effects
