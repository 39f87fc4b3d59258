#include "effects/TextEffectFramework.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace lumenar::effects {

bool SoftRunSse2Built()
{
#if defined(__SSE2__)
    return true;
#else
    return false;
#endif
}

std::int64_t BlendSoftRunSse2(std::uint8_t* out, const std::uint8_t* a, const std::uint8_t* b, int fraction,
                              int opacity, std::int64_t u, std::int64_t stepU, std::int64_t count,
                              std::uint32_t colour)
{
    std::int64_t k = 0;
#if defined(__SSE2__)
    auto weightAt = [&](std::int64_t at) {
        int c = a[at];
        if (fraction != 0)
            c += ((b[at] - c) * fraction) >> 8;
        return c * opacity;
    };
    // Two pixels at a time in 16-bit lanes. A weight of 32768 or more reads as negative in a signed
    // lane; the high half of that product is ((d × weight) >> 16) − d exactly, so d is added back.
    const auto blue = static_cast<short>((colour >> 16) & 255);
    const auto green = static_cast<short>((colour >> 8) & 255);
    const auto red = static_cast<short>(colour & 255);
    const __m128i zero = _mm_setzero_si128();
    const __m128i colours = _mm_setr_epi16(blue, green, red, 0, blue, green, red, 0);
    for (; k + 2 <= count; k += 2, u += 2 * stepU, out += 8) {
        const int w0 = weightAt(u >> 16);
        const int w1 = weightAt((u + stepU) >> 16);
        const auto s0 = static_cast<short>(static_cast<std::uint16_t>(w0));
        const auto s1 = static_cast<short>(static_cast<std::uint16_t>(w1));
        // The fourth byte of each pixel has no weight and stays as it is.
        const __m128i weights = _mm_setr_epi16(s0, s0, s0, 0, s1, s1, s1, 0);
        const __m128i pixels =
            _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(out)), zero);
        const __m128i d = _mm_sub_epi16(colours, pixels);
        const __m128i high = _mm_mulhi_epi16(d, weights);
        const __m128i step = _mm_add_epi16(high, _mm_and_si128(d, _mm_cmplt_epi16(weights, zero)));
        const __m128i blended = _mm_add_epi16(pixels, step);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(blended, zero));
    }
#else
    (void)out, (void)a, (void)b, (void)fraction, (void)opacity, (void)u, (void)stepU, (void)count,
        (void)colour;
#endif
    return k;
}

} // namespace lumenar::effects
