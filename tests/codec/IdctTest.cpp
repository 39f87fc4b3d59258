#include "codec/Idct.h"

#include "platform/Cpu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace lumenar::codec {
namespace {

// Random blocks of several shapes: full-range noise, extremes only, sparse realistic ones and
// DC-heavy ones, so that saturation, wrap-around of the pre-shift and every butterfly path are hit.
void FillBlock(std::mt19937& rng, int shape, std::int16_t* block)
{
    std::uniform_int_distribution<int> any(-32768, 32767);
    std::uniform_int_distribution<int> pick(0, 7);
    static constexpr std::int16_t kExtremes[] = {-32768, -32767, -4097, -4096, -1, 0, 1, 4095, 4096, 32767};
    for (int i = 0; i < 64; ++i) {
        switch (shape) {
        case 0:
            block[i] = static_cast<std::int16_t>(any(rng));
            break;
        case 1:
            block[i] = kExtremes[static_cast<std::size_t>(any(rng) & 0xFFFF) % std::size(kExtremes)];
            break;
        case 2: // Dequantised photo-like coefficients: mostly zero, small high frequencies.
            block[i] = pick(rng) < 6 ? 0 : static_cast<std::int16_t>(any(rng) >> (i == 0 ? 4 : 7));
            break;
        default: // Large DC with small AC, as a bright or dark flat area.
            block[i] =
                i == 0 ? static_cast<std::int16_t>(any(rng) >> 2) : static_cast<std::int16_t>(pick(rng) - 4);
            break;
        }
    }
}

TEST(FastIdct, Sse2MatchesScalarLaneModelBitForBit)
{
    if (!Sse2Built() || !platform::Simd().sse2)
        GTEST_FAIL() << "this build or processor has no SSE2: the fast path's SSE2 form is untested";
    std::mt19937 rng(20260123);
#ifdef NDEBUG
    constexpr int kBlocks = 4'000'000;
#else
    constexpr int kBlocks = 400'000; // Unoptimised and sanitizer builds; the optimised build runs them all.
#endif
    alignas(16) std::int16_t input[64], scalar[64], simd[64];
    std::uint8_t storedScalar[64], storedSimd[64], storedFused[64];
    int mismatches = 0;
    for (int n = 0; n < kBlocks && mismatches < 5; ++n) {
        FillBlock(rng, n % 4, input);
        std::memcpy(scalar, input, sizeof input);
        std::memcpy(simd, input, sizeof input);
        FastIdctScalar(scalar);
        FastIdctSse2(simd);
        PortableStoreBlock(scalar, storedScalar, 8);
        FastStoreBlockSse2(simd, storedSimd, 8);
        FastIdctStoreSse2(input, storedFused, 8);
        if (std::memcmp(scalar, simd, sizeof scalar) != 0 || std::memcmp(storedScalar, storedSimd, 64) != 0 ||
            std::memcmp(storedScalar, storedFused, 64) != 0) {
            ++mismatches;
            ADD_FAILURE() << "block " << n << " (shape " << n % 4 << ") differs";
        }
    }
}

// The two-block form against the lane model, with both halves different and strides that differ, so
// a half that borrowed from the other or a row written with the wrong stride shows.
TEST(FastIdct, Avx2PairMatchesScalarLaneModelBitForBit)
{
    if (!Avx2Built() || !platform::Simd().avx2)
        GTEST_SKIP() << "no AVX2 here: the decoder uses the one-block SSE2 form, tested above";
    std::mt19937 rng(20261123);
#ifdef NDEBUG
    constexpr int kPairs = 2'000'000;
#else
    constexpr int kPairs = 200'000;
#endif
    alignas(32) std::int16_t a[64], b[64], scalarA[64], scalarB[64];
    std::uint8_t expectA[64], expectB[64], gotA[8 * 16], gotB[8 * 24];
    int mismatches = 0;
    for (int n = 0; n < kPairs && mismatches < 5; ++n) {
        FillBlock(rng, n % 4, a);
        FillBlock(rng, (n / 4) % 4, b);
        std::memcpy(scalarA, a, sizeof a);
        std::memcpy(scalarB, b, sizeof b);
        FastIdctScalar(scalarA);
        FastIdctScalar(scalarB);
        PortableStoreBlock(scalarA, expectA, 8);
        PortableStoreBlock(scalarB, expectB, 8);
        FastIdctStoreAndClearPairAvx2(a, gotA, 16, b, gotB, 24);
        bool same = std::all_of(a, a + 64, [](int v) { return v == 0; }) &&
                    std::all_of(b, b + 64, [](int v) { return v == 0; });
        for (int r = 0; r < 8; ++r)
            same = same && std::memcmp(expectA + 8 * r, gotA + 16 * r, 8) == 0 &&
                   std::memcmp(expectB + 8 * r, gotB + 24 * r, 8) == 0;
        if (!same) {
            ++mismatches;
            ADD_FAILURE() << "pair " << n << " differs";
        }
    }
}

TEST(Idct, DcOnlyBlocksGiveFlatSamples)
{
    struct Row
    {
        const char* name;
        std::int16_t dc; // After the +1024 level shift.
        int fast;
        int portable;
    };
    // A dequantised DC of 0 is mid-grey on both paths; large DCs saturate in the store.
    const Row rows[] = {
        {"zero", 1024, 128, 128},
        {"black", 0, 0, 0},
        {"above white", 1024 + 8 * 200, 255, 255},
        {"below black", -2000, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::int16_t fast[64] = {row.dc}, portable[64] = {row.dc};
        FastIdct(fast);
        PortableIdct(portable);
        std::uint8_t fastOut[64], portableOut[64];
        FastStoreBlock(fast, fastOut, 8);
        PortableStoreBlock(portable, portableOut, 8);
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(fastOut[i], row.fast) << "sample " << i;
            ASSERT_EQ(portableOut[i], row.portable) << "sample " << i;
        }
    }
}

// Every first coefficient: the shortcut for flat blocks gives what both forms of the transform give.
TEST(FastIdct, DcOnlyShortcutMatchesTheTransformForEveryValue)
{
    for (int dc = -32768; dc <= 32767; ++dc) {
        std::int16_t scalar[64] = {static_cast<std::int16_t>(dc)}, fast[64] = {static_cast<std::int16_t>(dc)};
        FastIdctScalar(scalar);
        FastIdct(fast);
        const std::int16_t expected = FastIdctDcOnly(static_cast<std::int16_t>(dc));
        for (int i = 0; i < 64; ++i) {
            if (scalar[i] != expected || fast[i] != expected)
                FAIL() << "dc " << dc << ", sample " << i << ": " << scalar[i] << "/" << fast[i] << " vs "
                       << expected;
        }
    }
}

// Single basis functions against the exact inverse DCT: both paths stay within a level or two of it
// for moderate amplitudes, and put the energy in the right place (a transposed or mis-scaled table
// would miss by tens of levels).
TEST(Idct, BasisFunctionsFollowTheExactTransform)
{
    const double pi = 3.14159265358979323846;
    for (int u = 0; u < 8; ++u) {
        for (int v = 0; v < 8; ++v) {
            SCOPED_TRACE(testing::Message() << "vertical " << v << " horizontal " << u);
            const int amplitude = 160;
            std::int16_t fast[64] = {}, portable[64] = {};
            fast[0] = portable[0] = 1024;
            fast[v * 8 + u] = static_cast<std::int16_t>(fast[v * 8 + u] + amplitude);
            portable[v * 8 + u] = fast[v * 8 + u];
            FastIdct(fast);
            PortableIdct(portable);
            for (int y = 0; y < 8; ++y) {
                for (int x = 0; x < 8; ++x) {
                    const double cu = u == 0 ? std::sqrt(0.5) : 1.0, cv = v == 0 ? std::sqrt(0.5) : 1.0;
                    double exact = 128.0 + (u == 0 && v == 0 ? amplitude / 8.0 : 0.0);
                    if (u != 0 || v != 0)
                        exact += 0.25 * cu * cv * amplitude * std::cos((2 * x + 1) * u * pi / 16) *
                                 std::cos((2 * y + 1) * v * pi / 16);
                    ASSERT_NEAR(fast[y * 8 + x], exact, 2.0) << "fast at " << x << "," << y;
                    ASSERT_NEAR(portable[y * 8 + x], exact, 2.0) << "portable at " << x << "," << y;
                }
            }
        }
    }
}

} // namespace
} // namespace lumenar::codec
