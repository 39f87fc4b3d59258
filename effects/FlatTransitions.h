#pragma once

#include <cstdint>

namespace lumenar::effects {

// Flat picture transitions beyond the basic ones. Each follows the picture-effect protocol: it renders
// for 3 and every code above 4, ignores the others, and shows the target whole at full progress.

/// The source fades to black by half time, and the target comes up out of black.
std::int32_t FadeThroughBlack(std::uint32_t message, void* params);
/// The target shows through a circle that grows from the centre until it holds the corners.
std::int32_t Iris(std::uint32_t message, void* params);
/// An eight by eight board: the target wipes in from the left of every other cell in the first half,
/// and of the remaining cells in the second.
std::int32_t Checkerboard(std::uint32_t message, void* params);

/// The source parts down the middle, its halves sliding out to the left and right over the target.
std::int32_t Split(std::uint32_t message, void* params);
/// The target grows from a point at the centre to the whole picture over the source.
std::int32_t ZoomIn(std::uint32_t message, void* params);
/// The source shrinks to a point at the centre over the target.
std::int32_t ZoomOut(std::uint32_t message, void* params);

/// The target stretches in from the left edge over the source, from no width to the whole picture.
std::int32_t Stretch(std::uint32_t message, void* params);
/// The target stretches in from the left while the source is squeezed into the rest on the right.
std::int32_t Squeeze(std::uint32_t message, void* params);
/// The target stretches down from the top edge over the source.
std::int32_t StretchAcross(std::uint32_t message, void* params);

/// A hand sweeps clockwise from twelve o'clock about the centre, showing the target behind it.
std::int32_t ClockWipe(std::uint32_t message, void* params);

/// The source breaks into ever larger blocks by half time, and the target sharpens out of them.
std::int32_t Pixelate(std::uint32_t message, void* params);

/// The target dissolves in along the diagonal from the top-left corner, through a soft band.
std::int32_t GradientDissolve(std::uint32_t message, void* params);

/// The target drops in from above and bounces on the floor; under it the source shows, plain on some
/// arcs and under the target's shadow on the others.
std::int32_t Bounce(std::uint32_t message, void* params);
/// The bounce's height in percent of the picture at progress percent p (0..100).
std::int32_t BounceHeight(std::int32_t p);

/// The target comes in from the direction's edge behind a front that waves more and more and then
/// less again, its phase turning as it goes. Keeps the front's positions from init to release.
std::int32_t Wave(std::uint32_t message, void* params);

/// Tiles of the variant's size (as the tile dissolve chooses it) turn from source to target at random
/// times, each passing through a flat block of the source's and then the target's colour. Keeps the
/// tiles' times from init to release.
std::int32_t Mosaic(std::uint32_t message, void* params);

/// Diamonds open in a grid of cells, in a wave along the diagonal, from an edge or from the centre; the
/// variant's bits choose the cells' size, soft rims and the wave's way of travel.
std::int32_t PatternWipe(std::uint32_t message, void* params);

/// The target bursts out of the centre in rays of uneven speed (drawn from the effects' generator at
/// init and kept to release) until it covers the picture.
std::int32_t Burst(std::uint32_t message, void* params);

} // namespace lumenar::effects
