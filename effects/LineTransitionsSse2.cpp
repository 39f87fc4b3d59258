#include "effects/LineTransitions.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstddef>

namespace lumenar::effects {

#if defined(__SSE2__)

bool SqueezeRowSse2Built()
{
    return true;
}

namespace {

// Turns `count` pixels black, keeping their fourth bytes.
void ClearColours(std::uint32_t* out, std::int32_t count, __m128i fourth)
{
    std::int32_t x = 0;
    for (; x + 4 <= count; x += 4) {
        auto* at = reinterpret_cast<__m128i*>(out + x);
        _mm_storeu_si128(at, _mm_and_si128(_mm_loadu_si128(at), fourth));
    }
    for (; x < count; ++x)
        out[x] &= 0xFF000000u;
}

// The four samples of a row from `sample` on, gathered one by one.
__m128i Gather(const std::uint32_t* from, std::int64_t sample, std::int64_t step)
{
    return _mm_set_epi32(static_cast<int>(from[(sample + 3 * step) >> 16]),
                         static_cast<int>(from[(sample + 2 * step) >> 16]),
                         static_cast<int>(from[(sample + step) >> 16]), static_cast<int>(from[sample >> 16]));
}

// Four output pixels take the colour bytes of `colours` and keep their fourth bytes.
void Merge(std::uint32_t* out, __m128i colours, __m128i fourth)
{
    auto* at = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(
        at, _mm_or_si128(_mm_and_si128(_mm_loadu_si128(at), fourth), _mm_andnot_si128(fourth, colours)));
}

} // namespace

void SqueezeRowSse2(const std::uint32_t* from, std::uint32_t* out, std::int32_t w, std::int32_t inset)
{
    const __m128i fourth = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    const std::int32_t width = w - 2 * inset;
    ClearColours(out, inset, fourth);
    ClearColours(out + inset + width, inset, fourth);
    if (width <= 0)
        return;
    std::uint32_t* squeezed = out + inset;
    std::int32_t x = 0;
    if (width == w) {
        for (; x + 4 <= w; x += 4)
            Merge(out + x, _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + x)), fourth);
        for (; x < w; ++x)
            out[x] = (out[x] & 0xFF000000u) | (from[x] & 0x00FFFFFFu);
        return;
    }
    // The samples are gathered one by one; the output is read, merged and written four pixels at once,
    // eight to a round so that two rounds of gathering overlap.
    const std::int64_t step = (static_cast<std::int64_t>(w) << 16) / width;
    std::int64_t sample = step / 2;
    for (; x + 8 <= width; x += 8, sample += 8 * step) {
        const __m128i low = Gather(from, sample, step);
        const __m128i high = Gather(from, sample + 4 * step, step);
        Merge(squeezed + x, low, fourth);
        Merge(squeezed + x + 4, high, fourth);
    }
    for (; x + 4 <= width; x += 4, sample += 4 * step)
        Merge(squeezed + x, Gather(from, sample, step), fourth);
    for (; x < width; ++x, sample += step)
        squeezed[x] = (squeezed[x] & 0xFF000000u) | (from[sample >> 16] & 0x00FFFFFFu);
}

#else

// Built for a processor family without SSE2: the portable row is the only one.
bool SqueezeRowSse2Built()
{
    return false;
}

void SqueezeRowSse2(const std::uint32_t* from, std::uint32_t* out, std::int32_t w, std::int32_t inset)
{
    SqueezeRowPortable(from, out, w, inset);
}

#endif

} // namespace lumenar::effects
