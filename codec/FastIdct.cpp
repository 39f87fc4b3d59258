#include "codec/Idct.h"

#include "platform/Cpu.h"

#include <algorithm>

namespace lumenar::codec {

// round(16384 * m[r][c] * a_r * a_c) with a_0 = 1, a_k = sqrt(2) cos(k pi / 16); the entries where m is
// 2 or 4 keep two or three more bits of the coefficient, which is shifted less to compensate.
const std::int16_t kFastPrescale[64] = {
    16384, 22725, 21407, 19266, 16384, 12873, 8867,  4520, //
    22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270, //
    21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906, //
    19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315, //
    16384, 22725, 21407, 19266, 16384, 12873, 8867,  4520, //
    12873, 17855, 16819, 15137, 25746, 20228, 13933, 7103, //
    17734, 24598, 23170, 20853, 17734, 13933, 9598,  4893, //
    18081, 25080, 23624, 21261, 18081, 14206, 9786,  4989, //
};

const std::uint8_t kFastPrescaleShift[64] = {
    3, 3, 3, 3, 3, 3, 3, 3, //
    3, 3, 3, 3, 3, 3, 3, 3, //
    3, 3, 3, 3, 3, 3, 3, 3, //
    3, 3, 3, 3, 3, 3, 3, 3, //
    3, 3, 3, 3, 3, 3, 3, 3, //
    3, 3, 3, 3, 2, 2, 2, 2, //
    2, 2, 2, 2, 2, 2, 2, 2, //
    1, 1, 1, 1, 1, 1, 1, 1, //
};

namespace {

// One 16-bit lane of the MMX arithmetic.
inline std::int16_t Sat(int value)
{
    return static_cast<std::int16_t>(std::clamp(value, -32768, 32767));
}
inline std::int16_t Add(std::int16_t a, std::int16_t b)
{
    return Sat(a + b);
}
inline std::int16_t Sub(std::int16_t a, std::int16_t b)
{
    return Sat(a - b);
}
// The operand is shifted left with 16-bit wrap-around, then only the high half of the product is kept.
inline std::int16_t MulHigh(std::int16_t x, int shift, std::int16_t k)
{
    const auto shifted =
        static_cast<std::int16_t>(static_cast<std::uint16_t>(static_cast<std::uint16_t>(x) << shift));
    return static_cast<std::int16_t>((shifted * k) >> 16);
}

constexpr std::int16_t kK1 = 23170; // sqrt(2), operand shifted by 2.
constexpr std::int16_t kK2 = 21407; // 2.613126, operand shifted by 3.
constexpr std::int16_t kK3 = 17734; // 1.082392, operand shifted by 2.
constexpr std::int16_t kK4 = 25080; // 0.765367, operand shifted by 1.

void Butterfly(std::int16_t p[8])
{
    const std::int16_t t13 = Add(p[2], p[6]);
    const std::int16_t t12 = Sub(MulHigh(Sub(p[2], p[6]), 2, kK1), t13);
    const std::int16_t t10 = Add(p[0], p[4]);
    const std::int16_t t11 = Sub(p[0], p[4]);
    const std::int16_t t0 = Add(t10, t13);
    const std::int16_t t3 = Sub(t10, t13);
    const std::int16_t t1 = Add(t11, t12);
    const std::int16_t t2 = Sub(t11, t12);

    const std::int16_t z13 = Add(p[5], p[3]);
    const std::int16_t z10 = Sub(p[5], p[3]);
    const std::int16_t z11 = Add(p[1], p[7]);
    const std::int16_t z12 = Sub(p[1], p[7]);
    const std::int16_t a = MulHigh(z10, 3, kK2);
    const std::int16_t b = MulHigh(z12, 2, kK3);
    const std::int16_t w = MulHigh(Sub(z10, z12), 1, kK4);
    const std::int16_t t7 = Add(z11, z13);
    const std::int16_t u = MulHigh(Sub(z11, z13), 2, kK1);
    const std::int16_t t6 = Sub(Sub(b, w), t7);
    const std::int16_t t5 = Sub(u, t6);
    const std::int16_t t4 = Add(Sub(w, a), t5);

    p[0] = Add(t0, t7);
    p[7] = Sub(t0, t7);
    p[1] = Add(t1, t6);
    p[6] = Sub(t1, t6);
    p[2] = Add(t2, t5);
    p[5] = Sub(t2, t5);
    p[4] = Add(t3, t4);
    p[3] = Sub(t3, t4);
}

} // namespace

void FastIdctScalar(std::int16_t* block)
{
    std::int16_t v[8];
    for (int c = 0; c < 8; ++c) {
        for (int r = 0; r < 8; ++r)
            v[r] = MulHigh(block[r * 8 + c], kFastPrescaleShift[r * 8 + c], kFastPrescale[r * 8 + c]);
        Butterfly(v);
        for (int r = 0; r < 8; ++r)
            block[r * 8 + c] = v[r];
    }
    for (int r = 0; r < 8; ++r) {
        std::int16_t* row = block + r * 8;
        std::copy(row, row + 8, v);
        Butterfly(v);
        for (int c = 0; c < 8; ++c)
            row[c] = static_cast<std::int16_t>(Add(v[c], 8) >> 4);
    }
}

std::int16_t FastIdctDcOnly(std::int16_t dc)
{
    // With one non-zero input every butterfly output is that input: what is left is the prescale of
    // the first coefficient (shift by 3, times 16384, high half) and pass 2's rounding and shift.
    const std::int16_t prescaled = MulHigh(dc, kFastPrescaleShift[0], kFastPrescale[0]);
    return static_cast<std::int16_t>(Add(prescaled, 8) >> 4);
}

void FastIdct(std::int16_t* block)
{
    if (Sse2Built() && platform::Simd().sse2)
        FastIdctSse2(block);
    else
        FastIdctScalar(block);
}

void FastStoreBlock(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride)
{
    if (Sse2Built() && platform::Simd().sse2) {
        FastStoreBlockSse2(block, destination, stride);
        return;
    }
    PortableStoreBlock(block, destination, stride);
}

} // namespace lumenar::codec
