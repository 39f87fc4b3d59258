#pragma once

#include "base/Result.h"

#include <cstdint>
#include <string>
#include <vector>

namespace lumenar::platform {

/// A picture as the effects and the compositor hold it: 32-bit BGRX pixels, rows of width × 4 bytes,
/// bottom row first.
struct BgrxPicture
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;
};

/// Pictures larger than this many pixels are refused when read.
inline constexpr std::int64_t kMaxImageFilePixels = 16384LL * 16384LL;

/// Reads a PNG (any colour type; alpha is dropped) or an uncompressed 24/32-bit BMP. Fails with a
/// message naming the file for anything else, truncated files included.
base::Result<BgrxPicture> ReadImageFile(const std::string& path);

/// Writes a picture as PNG (8-bit RGB, top row first), BMP (32-bit, bottom-up) or binary PPM, chosen
/// by the extension of `path` (.png, .bmp, .ppm).
base::Status WriteImageFile(const std::string& path, const BgrxPicture& picture);

} // namespace lumenar::platform
