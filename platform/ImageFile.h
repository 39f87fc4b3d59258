#pragma once

#include "base/Result.h"

#include <cstdint>
#include <span>
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

/// The kinds of file a photo may arrive as, told from their first bytes.
enum class ImageFormat
{
    Unknown,
    Jpeg,
    Png,
    Webp,
};

/// The format of `bytes` from its signature; Unknown for anything else. Never fails.
ImageFormat SniffImageFormat(std::span<const std::uint8_t> bytes);

/// "JPEG", "PNG", "WebP" or "unknown", for messages.
const char* ImageFormatName(ImageFormat format);

/// A photo decoded from its file, with what the decoding had to flatten.
struct DecodedImage
{
    BgrxPicture picture;
    /// The picture had transparent parts; they were composed over black, as the player's frame is.
    bool hadAlpha = false;
};

/// Decodes a JPEG (whatever libjpeg-turbo reads: baseline or progressive, YCbCr, greyscale, RGB, CMYK
/// or YCCK), a PNG or a still WebP held in memory. Transparency is composed over black. Fails with a
/// message that names no file for any other kind of file, for damaged data, and for a picture of more
/// than kMaxImageFilePixels pixels. Any thread.
base::Result<DecodedImage> DecodeImage(std::span<const std::uint8_t> bytes);

/// How an encoded JPEG stores its chroma.
enum class JpegChroma
{
    Full,   ///< 4:4:4: every pixel has its own chroma.
    Halved, ///< 4:2:0: one chroma sample per 2 × 2 pixels.
};

/// Encodes `picture` with libjpeg-turbo as a baseline JPEG: 8-bit YCbCr, the standard Huffman tables,
/// one interleaved scan, no restart markers, a JFIF header and nothing else. `quality` is 1-100.
/// Fails for an empty picture or one whose sides do not fit a JPEG (65500 pixels). Any thread.
base::Result<std::vector<std::uint8_t>> EncodeBaselineJpeg(const BgrxPicture& picture, int quality,
                                                           JpegChroma chroma);

/// The EXIF orientation (1-8: how the stored rows must be turned to stand upright) that a JPEG's
/// APP1 segment records, read with libexif; 1 when the photo has none, or an unreadable or out-of-range
/// one. Any thread.
int ExifOrientation(std::span<const std::uint8_t> jpeg);

namespace detail {
base::Result<DecodedImage> DecodeJpeg(std::span<const std::uint8_t> bytes);
base::Result<DecodedImage> DecodePng(std::span<const std::uint8_t> bytes);
base::Result<DecodedImage> DecodeWebp(std::span<const std::uint8_t> bytes);
/// Composes the alpha bytes of a bottom-up BGRA picture over black and clears them; true when any
/// pixel was not opaque.
bool ComposeOverBlack(BgrxPicture& picture);
} // namespace detail

} // namespace lumenar::platform
