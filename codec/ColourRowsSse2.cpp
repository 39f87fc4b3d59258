// The colour conversion of whole rows in SSE2: the same bytes as the table look-ups.
#include "codec/ColourRows.h"

#if defined(__SSE2__)
#include <emmintrin.h>

namespace lumenar::codec {

namespace {

// trunc(d * factor) for d in -128..127, as the high half of (|d| << shift) * multiplier with the sign
// put back: for each factor these (shift, multiplier) pairs give exactly the truncated double product
// for every |d| up to 128 (the tests compare all of them with the tables).
struct Factor
{
    int shift;
    std::int16_t multiplier;
};
constexpr Factor kBlueFromCb{5, 3629};   // 1.772
constexpr Factor kGreenFromCb{5, 705};   // 0.34414
constexpr Factor kGreenFromCr{6, 731};   // 0.71414
constexpr Factor kRedFromCr{3, 11485};   // 1.402

inline __m128i Term(__m128i sign, __m128i magnitude, Factor f)
{
    const __m128i t = _mm_mulhi_epu16(_mm_sll_epi16(magnitude, _mm_cvtsi32_si128(f.shift)),
                                      _mm_set1_epi16(f.multiplier));
    return _mm_sub_epi16(_mm_xor_si128(t, sign), sign);
}

// Eight pixels: luma and chroma widened to 16 bits; returns blue, green, red as 16-bit sums.
inline void Pixels8(__m128i y, __m128i cb, __m128i cr, __m128i& blue, __m128i& green, __m128i& red)
{
    const __m128i bias = _mm_set1_epi16(128);
    const __m128i dcb = _mm_sub_epi16(cb, bias);
    const __m128i dcr = _mm_sub_epi16(cr, bias);
    const __m128i scb = _mm_srai_epi16(dcb, 15);
    const __m128i scr = _mm_srai_epi16(dcr, 15);
    const __m128i mcb = _mm_sub_epi16(_mm_xor_si128(dcb, scb), scb);
    const __m128i mcr = _mm_sub_epi16(_mm_xor_si128(dcr, scr), scr);
    blue = _mm_add_epi16(y, Term(scb, mcb, kBlueFromCb));
    green = _mm_sub_epi16(_mm_sub_epi16(y, Term(scb, mcb, kGreenFromCb)), Term(scr, mcr, kGreenFromCr));
    red = _mm_add_epi16(y, Term(scr, mcr, kRedFromCr));
}

inline void Store16(std::uint8_t* out, __m128i y, __m128i cb, __m128i cr)
{
    const __m128i zero = _mm_setzero_si128();
    __m128i b0, g0, r0, b1, g1, r1;
    Pixels8(_mm_unpacklo_epi8(y, zero), _mm_unpacklo_epi8(cb, zero), _mm_unpacklo_epi8(cr, zero), b0, g0, r0);
    Pixels8(_mm_unpackhi_epi8(y, zero), _mm_unpackhi_epi8(cb, zero), _mm_unpackhi_epi8(cr, zero), b1, g1, r1);
    // Saturating packs clamp each sum to 0..255, as the clamping table does.
    const __m128i b = _mm_packus_epi16(b0, b1);
    const __m128i g = _mm_packus_epi16(g0, g1);
    const __m128i r = _mm_packus_epi16(r0, r1);
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
    std::size_t x = 0;
    if (h == 1) {
        for (; x + 16 <= width; x += 16)
            Store16(out + 4 * x, Load16(yRow + x), Load16(cbRow + x), Load16(crRow + x));
    } else if (h == 2) {
        // Pixels x .. x + 15 (x even) take samples x/2, x/2+1, x/2+1, ..., x/2+8: the samples from x/2
        // interleaved with those from x/2 + 1. The last of them is the one pixel x + 15 takes.
        for (; x + 16 <= width; x += 16) {
            const std::size_t c = x / 2;
            const __m128i cb = _mm_unpacklo_epi8(Load8(cbRow + c), Load8(cbRow + c + 1));
            const __m128i cr = _mm_unpacklo_epi8(Load8(crRow + c), Load8(crRow + c + 1));
            Store16(out + 4 * x, Load16(yRow + x), cb, cr);
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

std::size_t ConvertRowSse2(const std::uint8_t*, const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t,
                           int)
{
    return 0;
}

bool ColourRowsSse2Built()
{
    return false;
}

} // namespace lumenar::codec

#endif
