#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace lumenar::effects {

// The basic picture transitions. Each takes a message and an EffectParams block, returns 0, and renders
// the whole output from source, target and progress alone (so a render may be repeated or skipped).
// Progress outside 0..progressDen is taken as the nearest end; a zero or negative progressDen, empty
// sizes or missing pictures draw nothing.

/// The target from half time on, the source before it.
std::int32_t CutAtHalf(std::uint32_t message, void* params);
/// The target uncovered from one edge; the rest shows the target's boundary line stretched over it.
std::int32_t SmearWipe(std::uint32_t message, void* params);
/// A centred rectangle opening (variant 1) or closing over the other picture.
std::int32_t BoxWipe(std::uint32_t message, void* params);
/// Square tiles switching at random moments; keeps its thresholds from init to release.
std::int32_t TileDissolve(std::uint32_t message, void* params);
/// The target uncovered behind a moving edge (cubic timing); variant = bands for 0x01 and 0x40.
std::int32_t Wipe(std::uint32_t message, void* params);
/// The target sliding in over the source (cubic timing).
std::int32_t SlideIn(std::uint32_t message, void* params);
/// The target pushing the source out (linear timing).
std::int32_t Push(std::uint32_t message, void* params);
/// Slats filling with the target from one of their edges; variant = number of slats (at most 80).
std::int32_t Blinds(std::uint32_t message, void* params);
/// The source leaving through an edge into black, then the target coming back the same way.
std::int32_t OutAndBack(std::uint32_t message, void* params);
/// Every byte blended in packed 16-bit lanes.
std::int32_t CrossFade(std::uint32_t message, void* params);

/// The cross-fade weighting of `count` bytes, portable form: out = tgt + (((src − tgt) × (127 − a)) >> 7),
/// clamped to 0..255.
void CrossFadeBytesPortable(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                            std::size_t count, int a);
/// The same with SSE2, bit for bit. Only worth calling when CrossFadeSse2Built() and
/// platform::Simd().sse2; a build without SSE2 makes it the portable form.
bool CrossFadeSse2Built();
void CrossFadeBytesSse2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                        std::size_t count, int a);

/// The fade's scaling of `count` bytes by level 0..256, portable form: out = (in × level) >> 8.
void ScaleBytesPortable(const std::uint8_t* input, std::uint8_t* output, std::size_t count,
                        std::uint32_t level);
/// The same with SSE2, bit for bit, under the same conditions as CrossFadeBytesSse2.
void ScaleBytesSse2(const std::uint8_t* input, std::uint8_t* output, std::size_t count, std::uint32_t level);

/// A run of `count` pixels blended from source to target by a weight that moves along it: pixel i takes
/// w = clamp((start + i × step) >> 16, 0, 256) of the target, out = s + (((t − s) × w) >> 8) per byte.
/// Portable form.
void BlendRampPortable(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                       std::int32_t count, std::int64_t start, std::int64_t step);
/// The same with SSE2, bit for bit, under the same conditions as CrossFadeBytesSse2.
void BlendRampSse2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                   std::int32_t count, std::int64_t start, std::int64_t step);
/// The fastest of the two forms this processor runs, chosen once per frame: runs are short and many.
using BlendRampForm = void (*)(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                               std::int32_t count, std::int64_t start, std::int64_t step);
BlendRampForm BlendRamp();

/// A run of pixels of one row that shows one picture.
struct ColourRun
{
    std::int32_t first;
    std::int32_t count;
    bool fromTarget;
};

/// The tile dissolve's row: the colour bytes of each run copied from `target` or `source` to `output`;
/// the fourth byte of each output pixel keeps what it held.
void CopyColourRunsPortable(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                            std::span<const ColourRun> runs);
/// The same with SSE2, bit for bit, under the same conditions as CrossFadeBytesSse2.
void CopyColourRunsSse2(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                        std::span<const ColourRun> runs);

/// The AVX2 forms of the cross-fade and the row copy, bit for bit. Only worth calling when
/// BlendAvx2Built() and platform::Simd().avx2.
bool BlendAvx2Built();
void CrossFadeBytesAvx2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                        std::size_t count, int a);
void CopyColourRunsAvx2(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                        std::span<const ColourRun> runs);
void ScaleBytesAvx2(const std::uint8_t* input, std::uint8_t* output, std::size_t count, std::uint32_t level);

} // namespace lumenar::effects
