#pragma once

#include "base/Result.h"
#include "platform/ImageFile.h"

#include <cstdint>
#include <span>
#include <string>
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

/// Reads a PNG or BMP file, or a JPEG photo through the player's own decoder (a damaged photo fails the
/// read instead of ending the process).
base::Result<platform::BgrxPicture> ReadPictureFile(const std::string& path);

} // namespace lumenar::app
