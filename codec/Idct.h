#pragma once

#include <cstddef>
#include <cstdint>

namespace lumenar::codec {

/// A block of 64 signed 16-bit values in natural (row-major) order: dequantised coefficients before
/// the inverse transform, level-shifted samples after it.
using CoefficientBlock = std::int16_t[64];

/// The fast inverse transform: the scaled Arai-Agui-Nakajima transform in saturating 16-bit lanes
/// with high-half products, exactly as the player's MMX code computes it. In place. Uses SSE2 when
/// the processor has it and the scalar lane model otherwise; both give identical samples.
void FastIdct(std::int16_t* block);

/// The fast path's store: each row of eight samples packed to bytes with unsigned saturation and
/// written to `destination + row * stride`.
void FastStoreBlock(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride);

/// The sample every lane of FastIdct gives for a block whose only non-zero value is the first (`dc`,
/// level shift included): a flat block needs no transform.
std::int16_t FastIdctDcOnly(std::int16_t dc);

/// The fast transform computed one lane at a time in plain C++. The reference the SSE2 form is
/// tested against, and the fast path on processors without SSE2.
void FastIdctScalar(std::int16_t* block);

/// The SSE2 form of FastIdct. Only call when platform::Simd().sse2; absent on non-x86 builds.
void FastIdctSse2(std::int16_t* block);

/// FastStoreBlock in SSE2.
void FastStoreBlockSse2(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride);

/// FastIdctSse2 and FastStoreBlockSse2 in one step, leaving `block` as it was.
void FastIdctStoreSse2(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride);

/// FastIdctStoreSse2 on two blocks at once, one in each half of the AVX2 registers; both blocks are
/// left all zero. Only call when Avx2Built() and platform::Simd().avx2.
void FastIdctStoreAndClearPairAvx2(std::int16_t* blockA, std::uint8_t* destinationA, std::ptrdiff_t strideA,
                                   std::int16_t* blockB, std::uint8_t* destinationB, std::ptrdiff_t strideB);
/// True when this build carries the AVX2 form.
bool Avx2Built();
/// True when this build carries the SSE2 forms.
bool Sse2Built();

/// The portable inverse transform: 9-bit fixed-point factors, 32-bit products and the player's
/// 16-bit truncations, rounding half away from zero at the end. In place. Its samples differ from
/// the fast path's by design.
void PortableIdct(std::int16_t* block);

/// The portable path's store: each sample clamped to 0..255 and written to
/// `destination + row * stride + column`.
void PortableStoreBlock(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride);

/// The MMX path's prescale multipliers A[r][c] (r the vertical, c the horizontal frequency).
extern const std::int16_t kFastPrescale[64];
/// The left shift applied to each coefficient before its prescale product.
extern const std::uint8_t kFastPrescaleShift[64];

} // namespace lumenar::codec
