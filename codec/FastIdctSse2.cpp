// The fast transform in SSE2: the same 16-bit lane arithmetic as FastIdctScalar, eight lanes at a time.
#include "codec/Idct.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>

namespace lumenar::codec {

namespace {

inline __m128i Load(const std::int16_t* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// One butterfly over eight lanes at once; p[0..7] in, outputs in place.
inline void Butterfly(__m128i p[8])
{
    const __m128i k1 = _mm_set1_epi16(23170);
    const __m128i k2 = _mm_set1_epi16(21407);
    const __m128i k3 = _mm_set1_epi16(17734);
    const __m128i k4 = _mm_set1_epi16(25080);

    const __m128i t13 = _mm_adds_epi16(p[2], p[6]);
    const __m128i t12 =
        _mm_subs_epi16(_mm_mulhi_epi16(_mm_slli_epi16(_mm_subs_epi16(p[2], p[6]), 2), k1), t13);
    const __m128i t10 = _mm_adds_epi16(p[0], p[4]);
    const __m128i t11 = _mm_subs_epi16(p[0], p[4]);
    const __m128i t0 = _mm_adds_epi16(t10, t13);
    const __m128i t3 = _mm_subs_epi16(t10, t13);
    const __m128i t1 = _mm_adds_epi16(t11, t12);
    const __m128i t2 = _mm_subs_epi16(t11, t12);

    const __m128i z13 = _mm_adds_epi16(p[5], p[3]);
    const __m128i z10 = _mm_subs_epi16(p[5], p[3]);
    const __m128i z11 = _mm_adds_epi16(p[1], p[7]);
    const __m128i z12 = _mm_subs_epi16(p[1], p[7]);
    const __m128i a = _mm_mulhi_epi16(_mm_slli_epi16(z10, 3), k2);
    const __m128i b = _mm_mulhi_epi16(_mm_slli_epi16(z12, 2), k3);
    const __m128i w = _mm_mulhi_epi16(_mm_slli_epi16(_mm_subs_epi16(z10, z12), 1), k4);
    const __m128i t7 = _mm_adds_epi16(z11, z13);
    const __m128i u = _mm_mulhi_epi16(_mm_slli_epi16(_mm_subs_epi16(z11, z13), 2), k1);
    const __m128i t6 = _mm_subs_epi16(_mm_subs_epi16(b, w), t7);
    const __m128i t5 = _mm_subs_epi16(u, t6);
    const __m128i t4 = _mm_adds_epi16(_mm_subs_epi16(w, a), t5);

    p[0] = _mm_adds_epi16(t0, t7);
    p[7] = _mm_subs_epi16(t0, t7);
    p[1] = _mm_adds_epi16(t1, t6);
    p[6] = _mm_subs_epi16(t1, t6);
    p[2] = _mm_adds_epi16(t2, t5);
    p[5] = _mm_subs_epi16(t2, t5);
    p[4] = _mm_adds_epi16(t3, t4);
    p[3] = _mm_subs_epi16(t3, t4);
}

inline void Transpose(__m128i r[8])
{
    const __m128i a0 = _mm_unpacklo_epi16(r[0], r[1]);
    const __m128i a1 = _mm_unpackhi_epi16(r[0], r[1]);
    const __m128i a2 = _mm_unpacklo_epi16(r[2], r[3]);
    const __m128i a3 = _mm_unpackhi_epi16(r[2], r[3]);
    const __m128i a4 = _mm_unpacklo_epi16(r[4], r[5]);
    const __m128i a5 = _mm_unpackhi_epi16(r[4], r[5]);
    const __m128i a6 = _mm_unpacklo_epi16(r[6], r[7]);
    const __m128i a7 = _mm_unpackhi_epi16(r[6], r[7]);
    const __m128i b0 = _mm_unpacklo_epi32(a0, a2);
    const __m128i b1 = _mm_unpackhi_epi32(a0, a2);
    const __m128i b2 = _mm_unpacklo_epi32(a1, a3);
    const __m128i b3 = _mm_unpackhi_epi32(a1, a3);
    const __m128i b4 = _mm_unpacklo_epi32(a4, a6);
    const __m128i b5 = _mm_unpackhi_epi32(a4, a6);
    const __m128i b6 = _mm_unpacklo_epi32(a5, a7);
    const __m128i b7 = _mm_unpackhi_epi32(a5, a7);
    r[0] = _mm_unpacklo_epi64(b0, b4);
    r[1] = _mm_unpackhi_epi64(b0, b4);
    r[2] = _mm_unpacklo_epi64(b1, b5);
    r[3] = _mm_unpackhi_epi64(b1, b5);
    r[4] = _mm_unpacklo_epi64(b2, b6);
    r[5] = _mm_unpackhi_epi64(b2, b6);
    r[6] = _mm_unpacklo_epi64(b3, b7);
    r[7] = _mm_unpackhi_epi64(b3, b7);
}

} // namespace

bool Sse2Built()
{
    return true;
}

namespace {

// The whole transform; the samples are left in p, row by row.
inline void Transform(const std::int16_t* block, __m128i p[8])
{
    // Pass 1: lanes are columns. Rows 0..4 shift by 3, row 6 by 2, row 7 by 1; row 5 mixes 3 and 2, so
    // its shift is a multiplication by 8 or 4 (the low half wraps exactly like the shift).
    for (int r = 0; r < 8; ++r) {
        const __m128i x = Load(block + r * 8);
        __m128i shifted;
        if (r == 5)
            shifted = _mm_mullo_epi16(x, _mm_setr_epi16(8, 8, 8, 8, 4, 4, 4, 4));
        else if (r == 6)
            shifted = _mm_slli_epi16(x, 2);
        else if (r == 7)
            shifted = _mm_slli_epi16(x, 1);
        else
            shifted = _mm_slli_epi16(x, 3);
        p[r] = _mm_mulhi_epi16(shifted, Load(kFastPrescale + r * 8));
    }
    Butterfly(p);
    // Pass 2: lanes are rows.
    Transpose(p);
    Butterfly(p);
    const __m128i eight = _mm_set1_epi16(8);
    for (int i = 0; i < 8; ++i)
        p[i] = _mm_srai_epi16(_mm_adds_epi16(p[i], eight), 4);
    Transpose(p);
}

} // namespace

void FastIdctSse2(std::int16_t* block)
{
    __m128i p[8];
    Transform(block, p);
    for (int r = 0; r < 8; ++r)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block + r * 8), p[r]);
}

void FastIdctStoreSse2(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride)
{
    // FastIdctSse2 then FastStoreBlockSse2, without the samples' round trip through memory.
    __m128i p[8];
    Transform(block, p);
    for (int r = 0; r < 8; r += 2) {
        const __m128i bytes = _mm_packus_epi16(p[r], p[r + 1]);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destination + r * stride), bytes);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destination + (r + 1) * stride),
                         _mm_srli_si128(bytes, 8));
    }
}

void FastStoreBlockSse2(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride)
{
    for (int r = 0; r < 8; r += 2) {
        const __m128i bytes = _mm_packus_epi16(Load(block + r * 8), Load(block + r * 8 + 8));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destination + r * stride), bytes);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destination + (r + 1) * stride),
                         _mm_srli_si128(bytes, 8));
    }
}

} // namespace lumenar::codec

#else

namespace lumenar::codec {

bool Sse2Built()
{
    return false;
}
void FastIdctSse2(std::int16_t* block)
{
    FastIdctScalar(block);
}
void FastStoreBlockSse2(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride)
{
    PortableStoreBlock(block, destination, stride);
}
void FastIdctStoreSse2(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride)
{
    std::int16_t samples[64];
    std::copy(block, block + 64, samples);
    FastIdctScalar(samples);
    PortableStoreBlock(samples, destination, stride);
}

} // namespace lumenar::codec

#endif
