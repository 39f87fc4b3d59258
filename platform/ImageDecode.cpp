#include "platform/ImageFile.h"

#include <cstring>

namespace lumenar::platform {

ImageFormat SniffImageFormat(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF)
        return ImageFormat::Jpeg;
    if (bytes.size() >= 8 && std::memcmp(bytes.data(), "\x89PNG\r\n\x1A\n", 8) == 0)
        return ImageFormat::Png;
    if (bytes.size() >= 12 && std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
        std::memcmp(bytes.data() + 8, "WEBP", 4) == 0)
        return ImageFormat::Webp;
    return ImageFormat::Unknown;
}

const char* ImageFormatName(ImageFormat format)
{
    switch (format) {
    case ImageFormat::Jpeg:
        return "JPEG";
    case ImageFormat::Png:
        return "PNG";
    case ImageFormat::Webp:
        return "WebP";
    case ImageFormat::Unknown:
        break;
    }
    return "unknown";
}

base::Result<DecodedImage> DecodeImage(std::span<const std::uint8_t> bytes)
{
    switch (SniffImageFormat(bytes)) {
    case ImageFormat::Jpeg:
        return detail::DecodeJpeg(bytes);
    case ImageFormat::Png:
        return detail::DecodePng(bytes);
    case ImageFormat::Webp:
        return detail::DecodeWebp(bytes);
    case ImageFormat::Unknown:
        break;
    }
    return base::Error{base::ErrorCode::Unsupported, "not a JPEG, PNG or WebP picture"};
}

namespace detail {

bool ComposeOverBlack(BgrxPicture& picture)
{
    bool translucent = false;
    for (std::size_t i = 0; i + 3 < picture.pixels.size(); i += 4) {
        const unsigned alpha = picture.pixels[i + 3];
        if (alpha != 255) {
            translucent = true;
            for (std::size_t c = 0; c < 3; ++c)
                picture.pixels[i + c] =
                    static_cast<std::uint8_t>((picture.pixels[i + c] * alpha + 127) / 255);
        }
        picture.pixels[i + 3] = 0;
    }
    return translucent;
}

} // namespace detail

} // namespace lumenar::platform
