#include "effects/Renderer3D.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstring>

namespace lumenar::effects::render3d {

bool SampleSpanSse2Built()
{
#if defined(__SSE2__)
    return true;
#else
    return false;
#endif
}

#if defined(__SSE2__)
namespace {

// Per-pixel weights as whole registers, so that spreading a weight over a pixel's lanes costs a load
// rather than shuffles: kDownWeights[f] holds f in all eight 16-bit lanes, kAcrossWeights[f] holds
// 256 − f for the left texel's four channels and f for the right one's. Constant tables, shared by
// every thread.
struct alignas(16) LaneWeights
{
    std::int16_t lane[8];
};

enum class Weighting
{
    Down,
    Across
};

constexpr std::array<LaneWeights, 256> MakeWeights(Weighting weighting)
{
    std::array<LaneWeights, 256> table{};
    for (int f = 0; f < 256; ++f) {
        for (int i = 0; i < 8; ++i)
            table[static_cast<std::size_t>(f)].lane[i] =
                static_cast<std::int16_t>(weighting == Weighting::Across && i < 4 ? 256 - f : f);
    }
    return table;
}

constexpr std::array<LaneWeights, 256> kDownWeights = MakeWeights(Weighting::Down);
constexpr std::array<LaneWeights, 256> kAcrossWeights = MakeWeights(Weighting::Across);

__m128i Weights(const std::array<LaneWeights, 256>& table, std::uint32_t f)
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(table[f].lane));
}

// One pixel's sample down the texture and weighted across: the left texel's four channels times
// 256 − fx in the low lanes, the right one's times fx in the high lanes. Every product and sum stays
// below 65536, so the 16-bit lanes hold them exactly, as the portable form's byte pairs do.
[[gnu::always_inline]] inline __m128i Weighted(const std::uint32_t* at, std::uint32_t fx, std::uint32_t fy)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i top = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(at)), zero);
    const __m128i bottom =
        _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(at + kTexelStride)), zero);
    const __m128i f = Weights(kDownWeights, fy);
    const __m128i rest = _mm_sub_epi16(_mm_set1_epi16(256), f);
    const __m128i down =
        _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(top, rest), _mm_mullo_epi16(bottom, f)), 8);
    return _mm_mullo_epi16(down, Weights(kAcrossWeights, fx));
}

// Two pixels' channels in 16-bit lanes, the first pixel low, shaded.
[[gnu::always_inline]] inline __m128i Pair(__m128i first, __m128i second, std::uint32_t shade)
{
    __m128i pair = _mm_srli_epi16(
        _mm_add_epi16(_mm_unpacklo_epi64(first, second), _mm_unpackhi_epi64(first, second)), 8);
    if (shade < 256)
        pair = _mm_srli_epi16(_mm_mullo_epi16(pair, _mm_set1_epi16(static_cast<short>(shade))), 8);
    return pair;
}

// The sample at (tu, tv), stepping them on; a lane past the span's end (not `live`) samples the first
// texel and is not stored.
template <bool Clamped>
[[gnu::always_inline]] inline __m128i NextSample(const std::uint32_t* texels, std::int64_t& tu,
                                                 std::int64_t& tv, std::int64_t du, std::int64_t dv,
                                                 bool live)
{
    std::int32_t fu = 0, fv = 0;
    if (live) {
        fu = Clamped ? ClampTexel(tu) : static_cast<std::int32_t>(tu);
        fv = Clamped ? ClampTexel(tv) : static_cast<std::int32_t>(tv);
        tu += du;
        tv += dv;
    }
    const std::uint32_t* at = texels + static_cast<std::size_t>(fv >> 16) * kTexelStride + (fu >> 16);
    return Weighted(at, static_cast<std::uint32_t>(fu >> 8 & 255), static_cast<std::uint32_t>(fv >> 8 & 255));
}

// The span four pixels a step. Positions step in 64 bits as in the portable form; `Clamped` says whether
// they may leave the texture and must be clamped.
template <bool Clamped>
void SampleRun(const std::uint32_t* texels, std::int64_t tu, std::int64_t tv, std::int64_t du,
               std::int64_t dv, int count, std::uint32_t shade, std::uint8_t* out)
{
    for (int k = 0; k < count; k += 4, out += 16) {
        const int n = std::min(4, count - k);
        // Written out four times rather than looped, so that the four samples stay in registers.
        const __m128i first = NextSample<Clamped>(texels, tu, tv, du, dv, true);
        const __m128i second = NextSample<Clamped>(texels, tu, tv, du, dv, n > 1);
        const __m128i third = NextSample<Clamped>(texels, tu, tv, du, dv, n > 2);
        const __m128i fourth = NextSample<Clamped>(texels, tu, tv, du, dv, n > 3);
        const __m128i pixels = _mm_packus_epi16(Pair(first, second, shade), Pair(third, fourth, shade));
        if (n == 4) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), pixels);
        } else {
            alignas(16) std::uint8_t last[16];
            _mm_store_si128(reinterpret_cast<__m128i*>(last), pixels);
            std::memcpy(out, last, static_cast<std::size_t>(n) * 4);
        }
    }
}

bool InsideTexture(std::int64_t position)
{
    return position >= 0 && position <= (std::int64_t{kTextureSize - 1} << 16);
}

} // namespace

// A span that starts and ends inside the texture stays inside all along (the positions are linear), so
// its pixels need no clamping.
void SampleSpanSse2(const std::uint32_t* texels, std::int64_t tu, std::int64_t tv, std::int64_t du,
                    std::int64_t dv, int count, std::uint32_t shade, std::uint8_t* out)
{
    if (count <= 0)
        return;
    const std::int64_t lastU = tu + du * (count - 1), lastV = tv + dv * (count - 1);
    if (InsideTexture(tu) && InsideTexture(tv) && InsideTexture(lastU) && InsideTexture(lastV))
        SampleRun<false>(texels, tu, tv, du, dv, count, shade, out);
    else
        SampleRun<true>(texels, tu, tv, du, dv, count, shade, out);
}
#endif

} // namespace lumenar::effects::render3d
