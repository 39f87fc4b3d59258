// The cross-fade and the tile dissolve's row copy in AVX2: the SSE2 forms' lane arithmetic on 32 bytes
// at a time. This file is compiled with -mavx2 and only called after the processor check; it includes
// only the intrinsics and declarations, so that no shared inline function is compiled here with
// instructions other files must not run.
#include "effects/BasicTransitions.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace lumenar::effects {

bool BlendAvx2Built()
{
    return true;
}

void CrossFadeBytesAvx2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                        std::size_t count, int a)
{
    const __m256i zero = _mm256_setzero_si256();
    const __m256i weight = _mm256_set1_epi16(static_cast<short>(127 - a));
    std::size_t i = 0;
    // Unpacking and packing both work within 128-bit lanes, so the bytes come back in their order.
    for (; i + 32 <= count; i += 32) {
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + i));
        const __m256i t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(target + i));
        const __m256i tLow = _mm256_unpacklo_epi8(t, zero);
        const __m256i tHigh = _mm256_unpackhi_epi8(t, zero);
        const __m256i dLow = _mm256_sub_epi16(_mm256_unpacklo_epi8(s, zero), tLow);
        const __m256i dHigh = _mm256_sub_epi16(_mm256_unpackhi_epi8(s, zero), tHigh);
        const __m256i low = _mm256_add_epi16(tLow, _mm256_srai_epi16(_mm256_mullo_epi16(dLow, weight), 7));
        const __m256i high = _mm256_add_epi16(tHigh, _mm256_srai_epi16(_mm256_mullo_epi16(dHigh, weight), 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(output + i), _mm256_packus_epi16(low, high));
    }
    CrossFadeBytesPortable(source + i, target + i, output + i, count - i, a);
}

void ScaleBytesAvx2(const std::uint8_t* input, std::uint8_t* output, std::size_t count, std::uint32_t level)
{
    const __m256i zero = _mm256_setzero_si256();
    const __m256i factor = _mm256_set1_epi16(static_cast<short>(level));
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(input + i));
        const __m256i low = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_unpacklo_epi8(v, zero), factor), 8);
        const __m256i high = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_unpackhi_epi8(v, zero), factor), 8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(output + i), _mm256_packus_epi16(low, high));
    }
    ScaleBytesPortable(input + i, output + i, count - i, level);
}

void CopyColourRunsAvx2(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                        std::span<const ColourRun> runs)
{
    const __m256i colour = _mm256_set1_epi32(0x00FFFFFF);
    const __m128i narrow = _mm256_castsi256_si128(colour);
    for (const ColourRun& run : runs) {
        const std::uint32_t* from = (run.fromTarget ? target : source) + run.first;
        std::uint32_t* to = output + run.first;
        const std::size_t count = static_cast<std::size_t>(run.count);
        std::size_t i = 0;
        for (; i + 8 <= count; i += 8) {
            const __m256i f = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + i));
            const __m256i o = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(to + i));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i),
                                _mm256_or_si256(_mm256_and_si256(f, colour), _mm256_andnot_si256(colour, o)));
        }
        if (i + 4 <= count) {
            const __m128i f = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
            const __m128i o = _mm_loadu_si128(reinterpret_cast<const __m128i*>(to + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i),
                             _mm_or_si128(_mm_and_si128(f, narrow), _mm_andnot_si128(narrow, o)));
            i += 4;
        }
        for (; i < count; ++i)
            to[i] = (to[i] & 0xFF000000u) | (from[i] & 0x00FFFFFFu);
    }
}

} // namespace lumenar::effects

#else

namespace lumenar::effects {

// Built for a processor family without AVX2: the portable forms stand in.
bool BlendAvx2Built()
{
    return false;
}

void CrossFadeBytesAvx2(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                        std::size_t count, int a)
{
    CrossFadeBytesPortable(source, target, output, count, a);
}

void ScaleBytesAvx2(const std::uint8_t* input, std::uint8_t* output, std::size_t count, std::uint32_t level)
{
    ScaleBytesPortable(input, output, count, level);
}

void CopyColourRunsAvx2(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                        std::span<const ColourRun> runs)
{
    CopyColourRunsPortable(source, target, output, runs);
}

} // namespace lumenar::effects

#endif
