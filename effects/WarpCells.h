#pragma once

// How the warps sample one cell of their meshes, in a portable form and an AVX2 form that give the same
// bytes. Internal to effects/.
#include <cstddef>
#include <cstdint>

namespace lumenar::effects {

/// The sample positions of a cell's rows, 16.16 with the half pixel added: the row's ends start at
/// (lx, ly) and (rx, ry) and move by (slx, sly) and (srx, sry) a row; a row's pixels step from its
/// left end by a `wide`th of the way to its right end, truncated, so that every position lies between
/// the ends'.
struct CellPath
{
    std::int32_t lx, ly, rx, ry;
    std::int32_t slx, sly, srx, sry;
    std::int32_t wide;
};

/// Writes `rows` rows of `count` samples of `picture` (`width` pixels a row) along `path` to `out`,
/// whose rows are `pitch` pixels apart. The positions must lie inside the picture.
void SampleCellPortable(const CellPath& path, const std::uint32_t* picture, std::size_t width,
                        std::uint32_t* out, std::size_t pitch, std::int32_t count, std::int32_t rows);
/// The same, blending the samples of `source` along `from` with those of `target` along `to`:
/// s + (((t − s) × weight) >> 8) per byte, weight 0..256.
void SampleCellBlendedPortable(const CellPath& from, const std::uint32_t* source, const CellPath& to,
                               const std::uint32_t* target, std::size_t width, std::uint32_t* out,
                               std::size_t pitch, std::int32_t count, std::int32_t rows, std::int32_t weight);

/// The AVX2 forms, bit for bit. Only worth calling when WarpAvx2Built() and platform::Simd().avx2.
bool WarpAvx2Built();
void SampleCellAvx2(const CellPath& path, const std::uint32_t* picture, std::size_t width, std::uint32_t* out,
                    std::size_t pitch, std::int32_t count, std::int32_t rows);
void SampleCellBlendedAvx2(const CellPath& from, const std::uint32_t* source, const CellPath& to,
                           const std::uint32_t* target, std::size_t width, std::uint32_t* out,
                           std::size_t pitch, std::int32_t count, std::int32_t rows, std::int32_t weight);

/// The faster pair of forms this processor runs, chosen once per frame.
struct CellSampler
{
    decltype(&SampleCellPortable) sample;
    decltype(&SampleCellBlendedPortable) blended;
};
CellSampler ChooseCellSampler();

} // namespace lumenar::effects
