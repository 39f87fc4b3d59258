// The colour conversion of whole rows in SSE2: the same bytes as the table look-ups.
#include "codec/ColourRows.h"

#if defined(__SSE2__)
#include <emmintrin.h>

namespace lumenar::codec {

namespace {

inline __m128i Term(__m128i sign, __m128i magnitude, ColourFactor f)
{
    const __m128i t =
        _mm_mulhi_epu16(_mm_sll_epi16(magnitude, _mm_cvtsi32_si128(f.shift)), _mm_set1_epi16(f.multiplier));
    return _mm_sub_epi16(_mm_xor_si128(t, sign), sign);
}

// The colour terms of eight chroma samples (widened to 16 bits): what each adds to the luma.
struct Terms
{
    __m128i blue, green, red;
};

inline Terms TermsOf(__m128i cb, __m128i cr)
{
    const __m128i bias = _mm_set1_epi16(128);
    const __m128i dcb = _mm_sub_epi16(cb, bias);
    const __m128i dcr = _mm_sub_epi16(cr, bias);
    const __m128i scb = _mm_srai_epi16(dcb, 15);
    const __m128i scr = _mm_srai_epi16(dcr, 15);
    const __m128i mcb = _mm_sub_epi16(_mm_xor_si128(dcb, scb), scb);
    const __m128i mcr = _mm_sub_epi16(_mm_xor_si128(dcr, scr), scr);
    return {Term(scb, mcb, kBlueFromCb),
            _mm_sub_epi16(_mm_setzero_si128(),
                          _mm_add_epi16(Term(scb, mcb, kGreenFromCb), Term(scr, mcr, kGreenFromCr))),
            Term(scr, mcr, kRedFromCr)};
}

// Sixteen pixels: luma bytes plus the terms of pixels 0-7 and 8-15, clamped and stored as BGRX.
inline void Store16(std::uint8_t* out, __m128i y, const Terms& lo, const Terms& hi)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i y0 = _mm_unpacklo_epi8(y, zero);
    const __m128i y1 = _mm_unpackhi_epi8(y, zero);
    // Saturating packs clamp each sum to 0..255, as the clamping table does.
    const __m128i b = _mm_packus_epi16(_mm_add_epi16(y0, lo.blue), _mm_add_epi16(y1, hi.blue));
    const __m128i g = _mm_packus_epi16(_mm_add_epi16(y0, lo.green), _mm_add_epi16(y1, hi.green));
    const __m128i r = _mm_packus_epi16(_mm_add_epi16(y0, lo.red), _mm_add_epi16(y1, hi.red));
    const __m128i bgLo = _mm_unpacklo_epi8(b, g);
    const __m128i bgHi = _mm_unpackhi_epi8(b, g);
    const __m128i r0x = _mm_unpacklo_epi8(r, zero);
    const __m128i r1x = _mm_unpackhi_epi8(r, zero);
    auto* p = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(p + 0, _mm_unpacklo_epi16(bgLo, r0x));
    _mm_storeu_si128(p + 1, _mm_unpackhi_epi16(bgLo, r0x));
    _mm_storeu_si128(p + 2, _mm_unpacklo_epi16(bgHi, r1x));
    _mm_storeu_si128(p + 3, _mm_unpackhi_epi16(bgHi, r1x));
}

inline __m128i Load16(const std::uint8_t* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline __m128i Load8(const std::uint8_t* p)
{
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

} // namespace

std::size_t ConvertRowSse2(const std::uint8_t* yRow, const std::uint8_t* cbRow, const std::uint8_t* crRow,
                           std::uint8_t* out, std::size_t width, int h)
{
    const __m128i zero = _mm_setzero_si128();
    std::size_t x = 0;
    if (h == 1) {
        for (; x + 16 <= width; x += 16) {
            const __m128i cb = Load16(cbRow + x), cr = Load16(crRow + x);
            Store16(out + 4 * x, Load16(yRow + x),
                    TermsOf(_mm_unpacklo_epi8(cb, zero), _mm_unpacklo_epi8(cr, zero)),
                    TermsOf(_mm_unpackhi_epi8(cb, zero), _mm_unpackhi_epi8(cr, zero)));
        }
    } else if (h == 2 && width >= 16) {
        // Pixels x .. x + 15 (x even) take samples x/2, x/2+1, x/2+1, ..., x/2+8: the terms of the
        // samples from x/2 interleaved with those from x/2 + 1. Each sample's terms are computed once;
        // the ones from x/2 + 1 are the same lanes moved down by one, the ninth borrowed from the next
        // sixteen pixels while those exist (then every sample read is one a later pixel takes).
        auto load = [&](std::size_t c) {
            return TermsOf(_mm_unpacklo_epi8(Load8(cbRow + c), zero),
                           _mm_unpacklo_epi8(Load8(crRow + c), zero));
        };
        auto moveDown = [](__m128i current, __m128i next) {
            return _mm_or_si128(_mm_srli_si128(current, 2), _mm_slli_si128(next, 14));
        };
        auto store = [&](const Terms& a, const Terms& b) {
            Store16(out + 4 * x, Load16(yRow + x),
                    {_mm_unpacklo_epi16(a.blue, b.blue), _mm_unpacklo_epi16(a.green, b.green),
                     _mm_unpacklo_epi16(a.red, b.red)},
                    {_mm_unpackhi_epi16(a.blue, b.blue), _mm_unpackhi_epi16(a.green, b.green),
                     _mm_unpackhi_epi16(a.red, b.red)});
        };
        Terms current = load(0);
        for (; x + 32 <= width; x += 16) {
            const Terms next = load(x / 2 + 8);
            store(current, {moveDown(current.blue, next.blue), moveDown(current.green, next.green),
                            moveDown(current.red, next.red)});
            current = next;
        }
        for (; x + 16 <= width; x += 16) {
            current = load(x / 2);
            store(current, load(x / 2 + 1));
        }
    }
    return x;
}

bool ColourRowsSse2Built()
{
    return true;
}

} // namespace lumenar::codec

#else

namespace lumenar::codec {

std::size_t ConvertRowSse2(const std::uint8_t*, const std::uint8_t*, const std::uint8_t*, std::uint8_t*,
                           std::size_t, int)
{
    return 0;
}

bool ColourRowsSse2Built()
{
    return false;
}

} // namespace lumenar::codec

#endif
