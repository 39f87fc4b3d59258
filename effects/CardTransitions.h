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

/// The source folds shut along its upright middle like a card closing away from the eye, then the
/// target opens out of the fold the same way.
std::int32_t FoldInHalf(std::uint32_t message, void* params);

/// The source rolls up like a blind from the edge it leaves by, into a roll that travels off the frame
/// in the row's direction (0x01 up, 0x10 down, 0x04 right, 0x40 left), uncovering the target lying flat
/// behind it; the wound sheet shows its back, darkened.
std::int32_t RollAway(std::uint32_t message, void* params);

/// The pictures on two neighbouring faces of a cube that turns a quarter turn about the upright axis,
/// the target coming in from the right; the cube steps back as it turns so that its leading edge never
/// leaves the frame.
std::int32_t CubeTurn(std::uint32_t message, void* params);

/// Variant 0: the source curls off from its bottom-right corner like a turned page, its back showing,
/// uncovering the target. Variant 1: the same played backwards with the pictures exchanged, the target
/// curling back in over the source.
std::int32_t PageCurl(std::uint32_t message, void* params);

/// The source breaks into jittered triangles that tumble towards and past the eye, the middle first,
/// uncovering the target. The pieces are cut at init from the effects' generator, so a fixed seed
/// repeats the shattering.
std::int32_t Shatter(std::uint32_t message, void* params);

} // namespace lumenar::effects
