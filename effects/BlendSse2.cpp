#include "effects/BasicTransitions.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstddef>

namespace lumenar::effects {

#if defined(__SSE2__)

bool CrossFadeSse2Built()
{
    return true;
}

void CrossFadeBytesSse2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                        std::size_t count, int a)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i weight = _mm_set1_epi16(static_cast<short>(127 - a));
    std::size_t i = 0;
    // The difference times the weight stays within ±255 × 127, so the 16-bit low products are exact.
    for (; i + 16 <= count; i += 16) {
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i));
        const __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(target + i));
        const __m128i tLow = _mm_unpacklo_epi8(t, zero);
        const __m128i tHigh = _mm_unpackhi_epi8(t, zero);
        const __m128i dLow = _mm_sub_epi16(_mm_unpacklo_epi8(s, zero), tLow);
        const __m128i dHigh = _mm_sub_epi16(_mm_unpackhi_epi8(s, zero), tHigh);
        const __m128i low = _mm_add_epi16(tLow, _mm_srai_epi16(_mm_mullo_epi16(dLow, weight), 7));
        const __m128i high = _mm_add_epi16(tHigh, _mm_srai_epi16(_mm_mullo_epi16(dHigh, weight), 7));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(output + i), _mm_packus_epi16(low, high));
    }
    CrossFadeBytesPortable(source + i, target + i, output + i, count - i, a);
}

void BlendRampSse2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                   std::int32_t count, std::int64_t start, std::int64_t step)
{
    const __m128i zero = _mm_setzero_si128();
    const auto weight = [&](std::int32_t i) {
        return static_cast<short>(2 * std::clamp<std::int64_t>((start + i * step) >> 16, 0, 256));
    };
    std::int32_t i = 0;
    // Four pixels at a time. (d × 128) × (2w) >> 16 is (d × w) >> 8 rounded down, as the portable form
    // shifts, and both factors fit a signed 16-bit lane.
    for (; i + 4 <= count; i += 4) {
        const short w0 = weight(i), w1 = weight(i + 1), w2 = weight(i + 2), w3 = weight(i + 3);
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i * 4));
        const __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(target + i * 4));
        const __m128i sLow = _mm_unpacklo_epi8(s, zero), sHigh = _mm_unpackhi_epi8(s, zero);
        const __m128i dLow = _mm_slli_epi16(_mm_sub_epi16(_mm_unpacklo_epi8(t, zero), sLow), 7);
        const __m128i dHigh = _mm_slli_epi16(_mm_sub_epi16(_mm_unpackhi_epi8(t, zero), sHigh), 7);
        const __m128i low =
            _mm_add_epi16(sLow, _mm_mulhi_epi16(dLow, _mm_set_epi16(w1, w1, w1, w1, w0, w0, w0, w0)));
        const __m128i high =
            _mm_add_epi16(sHigh, _mm_mulhi_epi16(dHigh, _mm_set_epi16(w3, w3, w3, w3, w2, w2, w2, w2)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(output + i * 4), _mm_packus_epi16(low, high));
    }
    BlendRampPortable(source + i * 4, target + i * 4, output + i * 4, count - i, start + i * step, step);
}

void ScaleBytesSse2(const std::uint8_t* input, std::uint8_t* output, std::size_t count, std::uint32_t level)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i factor = _mm_set1_epi16(static_cast<short>(level));
    std::size_t i = 0;
    // 255 × 256 still fits an unsigned 16-bit lane, so the low products are exact.
    for (; i + 16 <= count; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input + i));
        const __m128i low = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(v, zero), factor), 8);
        const __m128i high = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(v, zero), factor), 8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(output + i), _mm_packus_epi16(low, high));
    }
    ScaleBytesPortable(input + i, output + i, count - i, level);
}

void CopyColourRunsSse2(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                        std::span<const ColourRun> runs)
{
    const __m128i colour = _mm_set1_epi32(0x00FFFFFF);
    for (const ColourRun& run : runs) {
        const std::uint32_t* from = (run.fromTarget ? target : source) + run.first;
        std::uint32_t* to = output + run.first;
        const std::size_t count = static_cast<std::size_t>(run.count);
        std::size_t i = 0;
        for (; i + 4 <= count; i += 4) {
            const __m128i f = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
            const __m128i o = _mm_loadu_si128(reinterpret_cast<const __m128i*>(to + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i),
                             _mm_or_si128(_mm_and_si128(f, colour), _mm_andnot_si128(colour, o)));
        }
        for (; i < count; ++i)
            to[i] = (to[i] & 0xFF000000u) | (from[i] & 0x00FFFFFFu);
    }
}

#else

// Built for a processor family without SSE2: the portable blend is the only one.
bool CrossFadeSse2Built()
{
    return false;
}

void CrossFadeBytesSse2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                        std::size_t count, int a)
{
    CrossFadeBytesPortable(source, target, output, count, a);
}

void CopyColourRunsSse2(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                        std::span<const ColourRun> runs)
{
    CopyColourRunsPortable(source, target, output, runs);
}

void ScaleBytesSse2(const std::uint8_t* input, std::uint8_t* output, std::size_t count, std::uint32_t level)
{
    ScaleBytesPortable(input, output, count, level);
}

void BlendRampSse2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                   std::int32_t count, std::int64_t start, std::int64_t step)
{
    BlendRampPortable(source, target, output, count, start, step);
}

#endif

} // namespace lumenar::effects
