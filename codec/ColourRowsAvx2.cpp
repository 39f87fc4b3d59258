// The colour conversion of whole rows in AVX2: the SSE2 form's lane arithmetic on 32 pixels at a time.
// This file is compiled with -mavx2 and only called after the processor check; it includes only the
// intrinsics and declarations, so that no shared inline function is compiled here with instructions
// other files must not run.
#include "codec/ColourRows.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace lumenar::codec {

namespace {

inline __m256i Term(__m256i sign, __m256i magnitude, ColourFactor f)
{
    const __m256i t = _mm256_mulhi_epu16(_mm256_sll_epi16(magnitude, _mm_cvtsi32_si128(f.shift)),
                                         _mm256_set1_epi16(f.multiplier));
    return _mm256_sub_epi16(_mm256_xor_si256(t, sign), sign);
}

struct Terms
{
    __m256i blue, green, red;
};

// The colour terms of sixteen chroma samples widened to 16 bits.
inline Terms TermsOf(__m256i cb, __m256i cr)
{
    const __m256i bias = _mm256_set1_epi16(128);
    const __m256i dcb = _mm256_sub_epi16(cb, bias);
    const __m256i dcr = _mm256_sub_epi16(cr, bias);
    const __m256i scb = _mm256_srai_epi16(dcb, 15);
    const __m256i scr = _mm256_srai_epi16(dcr, 15);
    const __m256i mcb = _mm256_sub_epi16(_mm256_xor_si256(dcb, scb), scb);
    const __m256i mcr = _mm256_sub_epi16(_mm256_xor_si256(dcr, scr), scr);
    return {Term(scb, mcb, kBlueFromCb),
            _mm256_sub_epi16(_mm256_setzero_si256(),
                             _mm256_add_epi16(Term(scb, mcb, kGreenFromCb), Term(scr, mcr, kGreenFromCr))),
            Term(scr, mcr, kRedFromCr)};
}

// Thirty-two pixels from their luma bytes and their terms, `lo` for pixels 0-7 and 16-23 and `hi` for
// 8-15 and 24-31 (the order the in-lane unpacks leave them in), clamped and stored as BGRX.
inline void Store32(std::uint8_t* out, __m256i y, const Terms& lo, const Terms& hi)
{
    const __m256i zero = _mm256_setzero_si256();
    const __m256i y0 = _mm256_unpacklo_epi8(y, zero);
    const __m256i y1 = _mm256_unpackhi_epi8(y, zero);
    // Saturating packs clamp each sum to 0..255, as the clamping table does; they put the pixels back
    // in order.
    const __m256i b = _mm256_packus_epi16(_mm256_add_epi16(y0, lo.blue), _mm256_add_epi16(y1, hi.blue));
    const __m256i g = _mm256_packus_epi16(_mm256_add_epi16(y0, lo.green), _mm256_add_epi16(y1, hi.green));
    const __m256i r = _mm256_packus_epi16(_mm256_add_epi16(y0, lo.red), _mm256_add_epi16(y1, hi.red));
    const __m256i bgLo = _mm256_unpacklo_epi8(b, g);
    const __m256i bgHi = _mm256_unpackhi_epi8(b, g);
    const __m256i r0x = _mm256_unpacklo_epi8(r, zero);
    const __m256i r1x = _mm256_unpackhi_epi8(r, zero);
    // Pixels 0-3 | 16-19, 4-7 | 20-23, 8-11 | 24-27, 12-15 | 28-31.
    const __m256i p0 = _mm256_unpacklo_epi16(bgLo, r0x);
    const __m256i p1 = _mm256_unpackhi_epi16(bgLo, r0x);
    const __m256i p2 = _mm256_unpacklo_epi16(bgHi, r1x);
    const __m256i p3 = _mm256_unpackhi_epi16(bgHi, r1x);
    auto* p = reinterpret_cast<__m256i*>(out);
    _mm256_storeu_si256(p + 0, _mm256_permute2x128_si256(p0, p1, 0x20));
    _mm256_storeu_si256(p + 1, _mm256_permute2x128_si256(p2, p3, 0x20));
    _mm256_storeu_si256(p + 2, _mm256_permute2x128_si256(p0, p1, 0x31));
    _mm256_storeu_si256(p + 3, _mm256_permute2x128_si256(p2, p3, 0x31));
}

inline __m256i Load32(const std::uint8_t* p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

inline __m256i Widen16(const std::uint8_t* p)
{
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

} // namespace

std::size_t ConvertRowAvx2(const std::uint8_t* yRow, const std::uint8_t* cbRow, const std::uint8_t* crRow,
                           std::uint8_t* out, std::size_t width, int h)
{
    const __m256i zero = _mm256_setzero_si256();
    std::size_t x = 0;
    if (h == 1) {
        for (; x + 32 <= width; x += 32) {
            const __m256i cb = Load32(cbRow + x), cr = Load32(crRow + x);
            Store32(out + 4 * x, Load32(yRow + x),
                    TermsOf(_mm256_unpacklo_epi8(cb, zero), _mm256_unpacklo_epi8(cr, zero)),
                    TermsOf(_mm256_unpackhi_epi8(cb, zero), _mm256_unpackhi_epi8(cr, zero)));
        }
    } else if (h == 2) {
        // Pixels x .. x + 31 (x even) take samples x/2, x/2+1, x/2+1, ..., x/2+16: the terms of the
        // sixteen samples from x/2 interleaved with those of the sixteen from x/2 + 1.
        auto terms = [&](std::size_t c) { return TermsOf(Widen16(cbRow + c), Widen16(crRow + c)); };
        auto store = [&](const Terms& a, const Terms& b) {
            Store32(out + 4 * x, Load32(yRow + x),
                    {_mm256_unpacklo_epi16(a.blue, b.blue), _mm256_unpacklo_epi16(a.green, b.green),
                     _mm256_unpacklo_epi16(a.red, b.red)},
                    {_mm256_unpackhi_epi16(a.blue, b.blue), _mm256_unpackhi_epi16(a.green, b.green),
                     _mm256_unpackhi_epi16(a.red, b.red)});
        };
        // Each sample's terms are computed once: those from x/2 + 1 are the ones from x/2 moved down by
        // one, the last borrowed from the next 32 pixels' terms. That reads samples up to x/2 + 31,
        // the one pixel x + 62 takes, so it runs while that pixel exists.
        if (width >= 64) {
            auto moveDown = [](__m256i current, __m256i next) {
                return _mm256_alignr_epi8(_mm256_permute2x128_si256(current, next, 0x21), current, 2);
            };
            Terms current = terms(0);
            for (; x + 64 <= width; x += 32) {
                const Terms next = terms(x / 2 + 16);
                store(current, {moveDown(current.blue, next.blue), moveDown(current.green, next.green),
                                moveDown(current.red, next.red)});
                current = next;
            }
        }
        // Then both sets of terms directly, reading sample x/2 + 16 while pixel x + 32 exists.
        for (; x + 33 <= width; x += 32)
            store(terms(x / 2), terms(x / 2 + 1));
    }
    return x;
}

bool ColourRowsAvx2Built()
{
    return true;
}

} // namespace lumenar::codec

#else

namespace lumenar::codec {

std::size_t ConvertRowAvx2(const std::uint8_t*, const std::uint8_t*, const std::uint8_t*, std::uint8_t*,
                           std::size_t, int)
{
    return 0;
}

bool ColourRowsAvx2Built()
{
    return false;
}

} // namespace lumenar::codec

#endif
