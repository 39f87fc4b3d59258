#include "codec/Idct.h"

#include <algorithm>

namespace lumenar::codec {

namespace {

// The player's 16-bit stores of intermediate values: wrap to a signed 16-bit value.
inline int T16(int value)
{
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(value));
}

// Products are 32-bit and ">> 9" is an arithmetic shift (defined for negative values since C++20).
inline int Fix(int value, int factor)
{
    return (value * factor) >> 9;
}

} // namespace

void PortableIdct(std::int16_t* block)
{
    // Pass 1, rows: the coefficients enter with two extra bits (4 * c).
    for (int r = 0; r < 8; ++r) {
        std::int16_t* c = block + r * 8;
        const int a = Fix(c[0], 1448);
        const int b = Fix(T16(4 * c[4]), 362);
        const int e0 = a + b;
        const int e1 = a - b;
        const int t2 = T16(4 * c[2]);
        const int cc = T16(Fix(T16(4 * c[6]) + t2, 362));
        const int d = Fix(cc + t2, 277);
        const int e = Fix(t2 - cc, 669);
        const int f0 = e0 + d;
        const int f1 = e1 + e;
        const int f2 = e1 - e;
        const int f3 = e0 - d;
        const int g = Fix(T16(4 * c[5] + 4 * c[3]), 362);
        const int h = T16(4 * (c[1] + c[3]));
        const int i = T16(Fix(T16(4 * c[5] + 4 * c[7]) + h, 362));
        const int j = T16(4 * c[1] - g);
        const int k = T16(Fix(h - i, 669));
        const int l = Fix(j + k, 308);
        const int m = T16(Fix(h + i, 277));
        const int n = T16(g + 4 * c[1]);
        const int p = Fix(n + m, 261);
        const int q = Fix(j - k, 461);
        const int rr = Fix(n - m, 1312);
        c[0] = static_cast<std::int16_t>(T16(f0 + p));
        c[1] = static_cast<std::int16_t>(T16(f1 + l));
        c[2] = static_cast<std::int16_t>(T16(f2 + q));
        c[3] = static_cast<std::int16_t>(T16(f3 + rr));
        c[4] = static_cast<std::int16_t>(T16(f3 - rr));
        c[5] = static_cast<std::int16_t>(T16(f2 - q));
        c[6] = static_cast<std::int16_t>(T16(f1 - l));
        c[7] = static_cast<std::int16_t>(T16(f0 - p));
    }
    // Pass 2, columns.
    for (int col = 0; col < 8; ++col) {
        auto at = [&](int row) -> int { return block[row * 8 + col]; };
        const int a = Fix(at(0), 362);
        const int b = Fix(at(4), 362);
        const int e1 = a - b;
        const int cc = T16(Fix(at(6) + at(2), 362));
        const int d = Fix(cc + at(2), 277);
        const int e = Fix(at(2) - cc, 669);
        const int f0 = d + (a + b);
        const int f1 = e + e1;
        const int f2 = e1 - e;
        const int f3 = (a + b) - d;
        const int g = Fix(T16(at(5) + at(3)), 362);
        const int h = T16(at(1) + at(3));
        const int i = T16(Fix(T16(at(7) + at(5)) + h, 362));
        const int k = T16(Fix(h - i, 669));
        const int m = T16(Fix(h + i, 277));
        const int j = T16(at(1) - g);
        const int n = T16(at(1) + g);
        const int q = Fix(j - k, 461);
        const int p = Fix(n + m, 261);
        const int l = Fix(k + j, 308);
        const int rr = Fix(n - m, 1312);
        const int y[8] = {T16(f0 + p),  T16(f1 + l), T16(f2 + q), T16(f3 + rr),
                          T16(f3 - rr), T16(f2 - q), T16(f1 - l), T16(f0 - p)};
        for (int row = 0; row < 8; ++row) {
            // Rounds half away from zero: the division truncates toward zero.
            const int sample = y[row] < 0 ? (y[row] - 8) / 16 : (y[row] + 8) / 16;
            block[row * 8 + col] = static_cast<std::int16_t>(sample);
        }
    }
}

void PortableStoreBlock(const std::int16_t* block, std::uint8_t* destination, std::ptrdiff_t stride)
{
    // Samples past 0..255 saturate, as the fast path's pack does.
    for (int r = 0; r < 8; ++r) {
        std::uint8_t* out = destination + r * stride;
        for (int c = 0; c < 8; ++c)
            out[c] = static_cast<std::uint8_t>(std::clamp<int>(block[r * 8 + c], 0, 255));
    }
}

} // namespace lumenar::codec
