// The fast transform in AVX2: the SSE2 form's lane arithmetic on two blocks at once, one block in each
// 128-bit half. Every AVX2 operation used here works within its half (the unpacks included), so each
// block sees exactly the operations of the eight-lane form. This file is compiled with -mavx2 and
// only called after the processor check; it includes nothing but the intrinsics so that no shared
// inline function is compiled here with instructions other files must not run.
#include "codec/Idct.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace lumenar::codec {

namespace {

inline __m256i LoadPair(const std::int16_t* a, const std::int16_t* b)
{
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}

// Row r of both blocks, shifted and multiplied by the prescale row; a template so that each row's
// shift is an immediate with no test left in the transform.
template <int kRow> inline __m256i PrescaledRow(const std::int16_t* a, const std::int16_t* b)
{
    const __m256i x = LoadPair(a + kRow * 8, b + kRow * 8);
    __m256i shifted;
    if constexpr (kRow == 5)
        shifted = _mm256_mullo_epi16(x, _mm256_setr_epi16(8, 8, 8, 8, 4, 4, 4, 4, 8, 8, 8, 8, 4, 4, 4, 4));
    else if constexpr (kRow == 6)
        shifted = _mm256_slli_epi16(x, 2);
    else if constexpr (kRow == 7)
        shifted = _mm256_slli_epi16(x, 1);
    else
        shifted = _mm256_slli_epi16(x, 3);
    const __m128i prescale = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kFastPrescale + kRow * 8));
    return _mm256_mulhi_epi16(shifted, _mm256_broadcastsi128_si256(prescale));
}

inline void Butterfly(__m256i p[8])
{
    const __m256i k1 = _mm256_set1_epi16(23170);
    const __m256i k2 = _mm256_set1_epi16(21407);
    const __m256i k3 = _mm256_set1_epi16(17734);
    const __m256i k4 = _mm256_set1_epi16(25080);

    const __m256i t13 = _mm256_adds_epi16(p[2], p[6]);
    const __m256i t12 =
        _mm256_subs_epi16(_mm256_mulhi_epi16(_mm256_slli_epi16(_mm256_subs_epi16(p[2], p[6]), 2), k1), t13);
    const __m256i t10 = _mm256_adds_epi16(p[0], p[4]);
    const __m256i t11 = _mm256_subs_epi16(p[0], p[4]);
    const __m256i t0 = _mm256_adds_epi16(t10, t13);
    const __m256i t3 = _mm256_subs_epi16(t10, t13);
    const __m256i t1 = _mm256_adds_epi16(t11, t12);
    const __m256i t2 = _mm256_subs_epi16(t11, t12);

    const __m256i z13 = _mm256_adds_epi16(p[5], p[3]);
    const __m256i z10 = _mm256_subs_epi16(p[5], p[3]);
    const __m256i z11 = _mm256_adds_epi16(p[1], p[7]);
    const __m256i z12 = _mm256_subs_epi16(p[1], p[7]);
    const __m256i a = _mm256_mulhi_epi16(_mm256_slli_epi16(z10, 3), k2);
    const __m256i b = _mm256_mulhi_epi16(_mm256_slli_epi16(z12, 2), k3);
    const __m256i w = _mm256_mulhi_epi16(_mm256_slli_epi16(_mm256_subs_epi16(z10, z12), 1), k4);
    const __m256i t7 = _mm256_adds_epi16(z11, z13);
    const __m256i u = _mm256_mulhi_epi16(_mm256_slli_epi16(_mm256_subs_epi16(z11, z13), 2), k1);
    const __m256i t6 = _mm256_subs_epi16(_mm256_subs_epi16(b, w), t7);
    const __m256i t5 = _mm256_subs_epi16(u, t6);
    const __m256i t4 = _mm256_adds_epi16(_mm256_subs_epi16(w, a), t5);

    p[0] = _mm256_adds_epi16(t0, t7);
    p[7] = _mm256_subs_epi16(t0, t7);
    p[1] = _mm256_adds_epi16(t1, t6);
    p[6] = _mm256_subs_epi16(t1, t6);
    p[2] = _mm256_adds_epi16(t2, t5);
    p[5] = _mm256_subs_epi16(t2, t5);
    p[4] = _mm256_adds_epi16(t3, t4);
    p[3] = _mm256_subs_epi16(t3, t4);
}

inline void Transpose(__m256i r[8])
{
    const __m256i a0 = _mm256_unpacklo_epi16(r[0], r[1]);
    const __m256i a1 = _mm256_unpackhi_epi16(r[0], r[1]);
    const __m256i a2 = _mm256_unpacklo_epi16(r[2], r[3]);
    const __m256i a3 = _mm256_unpackhi_epi16(r[2], r[3]);
    const __m256i a4 = _mm256_unpacklo_epi16(r[4], r[5]);
    const __m256i a5 = _mm256_unpackhi_epi16(r[4], r[5]);
    const __m256i a6 = _mm256_unpacklo_epi16(r[6], r[7]);
    const __m256i a7 = _mm256_unpackhi_epi16(r[6], r[7]);
    const __m256i b0 = _mm256_unpacklo_epi32(a0, a2);
    const __m256i b1 = _mm256_unpackhi_epi32(a0, a2);
    const __m256i b2 = _mm256_unpacklo_epi32(a1, a3);
    const __m256i b3 = _mm256_unpackhi_epi32(a1, a3);
    const __m256i b4 = _mm256_unpacklo_epi32(a4, a6);
    const __m256i b5 = _mm256_unpackhi_epi32(a4, a6);
    const __m256i b6 = _mm256_unpacklo_epi32(a5, a7);
    const __m256i b7 = _mm256_unpackhi_epi32(a5, a7);
    r[0] = _mm256_unpacklo_epi64(b0, b4);
    r[1] = _mm256_unpackhi_epi64(b0, b4);
    r[2] = _mm256_unpacklo_epi64(b1, b5);
    r[3] = _mm256_unpackhi_epi64(b1, b5);
    r[4] = _mm256_unpacklo_epi64(b2, b6);
    r[5] = _mm256_unpackhi_epi64(b2, b6);
    r[6] = _mm256_unpacklo_epi64(b3, b7);
    r[7] = _mm256_unpackhi_epi64(b3, b7);
}

} // namespace

bool Avx2Built()
{
    return true;
}

void FastIdctStoreAndClearPairAvx2(std::int16_t* blockA, std::uint8_t* destinationA, std::ptrdiff_t strideA,
                                   std::int16_t* blockB, std::uint8_t* destinationB, std::ptrdiff_t strideB)
{
    __m256i p[8] = {PrescaledRow<0>(blockA, blockB), PrescaledRow<1>(blockA, blockB),
                    PrescaledRow<2>(blockA, blockB), PrescaledRow<3>(blockA, blockB),
                    PrescaledRow<4>(blockA, blockB), PrescaledRow<5>(blockA, blockB),
                    PrescaledRow<6>(blockA, blockB), PrescaledRow<7>(blockA, blockB)};
    // The decoder's next blocks start from zero; clearing here saves it a separate pass.
    const __m256i zero = _mm256_setzero_si256();
    for (int i = 0; i < 4; ++i) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(blockA) + i, zero);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(blockB) + i, zero);
    }
    Butterfly(p);
    Transpose(p);
    Butterfly(p);
    const __m256i eight = _mm256_set1_epi16(8);
    for (int i = 0; i < 8; ++i)
        p[i] = _mm256_srai_epi16(_mm256_adds_epi16(p[i], eight), 4);
    Transpose(p);
    for (int r = 0; r < 8; r += 2) {
        // Within each half: the bytes of row r, then of row r + 1.
        const __m256i bytes = _mm256_packus_epi16(p[r], p[r + 1]);
        const __m128i a = _mm256_castsi256_si128(bytes);
        const __m128i b = _mm256_extracti128_si256(bytes, 1);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destinationA + r * strideA), a);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destinationA + (r + 1) * strideA), _mm_srli_si128(a, 8));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destinationB + r * strideB), b);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destinationB + (r + 1) * strideB), _mm_srli_si128(b, 8));
    }
}

} // namespace lumenar::codec

#else

namespace lumenar::codec {

bool Avx2Built()
{
    return false;
}

void FastIdctStoreAndClearPairAvx2(std::int16_t* blockA, std::uint8_t* destinationA, std::ptrdiff_t strideA,
                                   std::int16_t* blockB, std::uint8_t* destinationB, std::ptrdiff_t strideB)
{
    FastIdctStoreSse2(blockA, destinationA, strideA);
    FastIdctStoreSse2(blockB, destinationB, strideB);
    for (int i = 0; i < 64; ++i)
        blockA[i] = blockB[i] = 0;
}

} // namespace lumenar::codec

#endif
