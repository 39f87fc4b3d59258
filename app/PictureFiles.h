#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace lumenar::app {

/// A 32-bit BGRX picture as the decoder leaves it: bottom row first, rows of 4 × width bytes.
struct BottomUpBgrx
{
    int width = 0;
    int height = 0;
    std::span<const std::uint8_t> pixels;
};

/// Binary PPM (P6), top row first, RGB.
std::vector<std::uint8_t> EncodePpm(const BottomUpBgrx& picture);

/// PNG, 8-bit RGB, top row first; stored (uncompressed) deflate blocks.
std::vector<std::uint8_t> EncodePng(const BottomUpBgrx& picture);

} // namespace lumenar::app
