// The warps' cell sampling in AVX2: a row of eight samples gathered at once, and blended in 16-bit
// lanes as the portable form does byte by byte. This file is compiled with -mavx2 and only called after
// the processor check; it includes only the intrinsics and declarations, so that no shared inline
// function is compiled here with instructions other files must not run.
#include "effects/WarpCells.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace lumenar::effects {

namespace {

constexpr std::int32_t kEight = 8;

std::int32_t Step(std::int32_t distance, std::int32_t pixels)
{
    return pixels == kEight ? distance / kEight : distance / pixels;
}

// The eight samples of a row: lane k at (x + k × dx, y + k × dy), as the portable form adds them up.
__m256i Gather(const std::uint32_t* picture, __m256i width, std::int32_t x, std::int32_t y, std::int32_t dx,
               std::int32_t dy)
{
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i px =
        _mm256_add_epi32(_mm256_set1_epi32(x), _mm256_mullo_epi32(lanes, _mm256_set1_epi32(dx)));
    const __m256i py =
        _mm256_add_epi32(_mm256_set1_epi32(y), _mm256_mullo_epi32(lanes, _mm256_set1_epi32(dy)));
    const __m256i at =
        _mm256_add_epi32(_mm256_mullo_epi32(_mm256_srai_epi32(py, 16), width), _mm256_srai_epi32(px, 16));
    return _mm256_i32gather_epi32(reinterpret_cast<const int*>(picture), at, 4);
}

// s + (((t − s) × w) >> 8) per byte: (d × 128) × (2w) >> 16 rounds down the same way, and both factors
// fit a signed 16-bit lane. Unpacking and packing both work within 128-bit lanes, so bytes keep their order.
__m256i Blend(__m256i s, __m256i t, __m256i weight2)
{
    const __m256i zero = _mm256_setzero_si256();
    const __m256i sLow = _mm256_unpacklo_epi8(s, zero), sHigh = _mm256_unpackhi_epi8(s, zero);
    const __m256i dLow = _mm256_slli_epi16(_mm256_sub_epi16(_mm256_unpacklo_epi8(t, zero), sLow), 7);
    const __m256i dHigh = _mm256_slli_epi16(_mm256_sub_epi16(_mm256_unpackhi_epi8(t, zero), sHigh), 7);
    return _mm256_packus_epi16(_mm256_add_epi16(sLow, _mm256_mulhi_epi16(dLow, weight2)),
                               _mm256_add_epi16(sHigh, _mm256_mulhi_epi16(dHigh, weight2)));
}

void Advance(CellPath& p)
{
    p.lx += p.slx;
    p.ly += p.sly;
    p.rx += p.srx;
    p.ry += p.sry;
}

} // namespace

bool WarpAvx2Built()
{
    return true;
}

void SampleCellAvx2(const CellPath& path, const std::uint32_t* picture, std::size_t width, std::uint32_t* out,
                    std::size_t pitch, std::int32_t count, std::int32_t rows)
{
    if (count != kEight) {
        SampleCellPortable(path, picture, width, out, pitch, count, rows);
        return;
    }
    const __m256i wide = _mm256_set1_epi32(static_cast<int>(width));
    CellPath p = path;
    for (std::int32_t k = 0; k < rows; ++k, out += pitch) {
        const __m256i pixels =
            Gather(picture, wide, p.lx, p.ly, Step(p.rx - p.lx, p.wide), Step(p.ry - p.ly, p.wide));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), pixels);
        Advance(p);
    }
}

void SampleCellBlendedAvx2(const CellPath& from, const std::uint32_t* source, const CellPath& to,
                           const std::uint32_t* target, std::size_t width, std::uint32_t* out,
                           std::size_t pitch, std::int32_t count, std::int32_t rows, std::int32_t weight)
{
    if (count != kEight) {
        SampleCellBlendedPortable(from, source, to, target, width, out, pitch, count, rows, weight);
        return;
    }
    const __m256i wide = _mm256_set1_epi32(static_cast<int>(width));
    const __m256i weight2 = _mm256_set1_epi16(static_cast<short>(2 * weight));
    CellPath p = from, q = to;
    for (std::int32_t k = 0; k < rows; ++k, out += pitch) {
        const __m256i s =
            Gather(source, wide, p.lx, p.ly, Step(p.rx - p.lx, p.wide), Step(p.ry - p.ly, p.wide));
        const __m256i t =
            Gather(target, wide, q.lx, q.ly, Step(q.rx - q.lx, q.wide), Step(q.ry - q.ly, q.wide));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), Blend(s, t, weight2));
        Advance(p);
        Advance(q);
    }
}

} // namespace lumenar::effects

#else

namespace lumenar::effects {

bool WarpAvx2Built()
{
    return false;
}
void SampleCellAvx2(const CellPath& path, const std::uint32_t* picture, std::size_t width, std::uint32_t* out,
                    std::size_t pitch, std::int32_t count, std::int32_t rows)
{
    SampleCellPortable(path, picture, width, out, pitch, count, rows);
}
void SampleCellBlendedAvx2(const CellPath& from, const std::uint32_t* source, const CellPath& to,
                           const std::uint32_t* target, std::size_t width, std::uint32_t* out,
                           std::size_t pitch, std::int32_t count, std::int32_t rows, std::int32_t weight)
{
    SampleCellBlendedPortable(from, source, to, target, width, out, pitch, count, rows, weight);
}

} // namespace lumenar::effects

#endif
