#include "platform/ImageFile.h"

#include "base/StrCat.h"

#include <webp/decode.h>

#include <algorithm>

namespace lumenar::platform::detail {

base::Result<DecodedImage> DecodeWebp(std::span<const std::uint8_t> bytes)
{
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK)
        return base::Error{base::ErrorCode::BadData, "not a readable WebP picture"};
    if (features.has_animation)
        return base::Error{base::ErrorCode::Unsupported, "an animated WebP is not a photo"};
    if (features.width <= 0 || features.height <= 0 ||
        std::int64_t{features.width} * features.height > kMaxImageFilePixels)
        return base::Error{base::ErrorCode::TooLarge, base::StrCat("WebP picture of ", features.width, "x",
                                                                   features.height, " is too large")};
    DecodedImage image;
    BgrxPicture& picture = image.picture;
    picture.width = features.width;
    picture.height = features.height;
    const std::size_t stride = static_cast<std::size_t>(picture.width) * 4;
    picture.pixels.resize(stride * static_cast<std::size_t>(picture.height));
    // Decoded top row first into the buffer's last row, then stepped back: the picture is bottom-up.
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config))
        return base::Error{base::ErrorCode::Unsupported, "libwebp refused its own configuration"};
    config.output.colorspace = MODE_BGRA;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = picture.pixels.data();
    config.output.u.RGBA.stride = static_cast<int>(stride);
    config.output.u.RGBA.size = picture.pixels.size();
    const VP8StatusCode status = WebPDecode(bytes.data(), bytes.size(), &config);
    WebPFreeDecBuffer(&config.output);
    if (status != VP8_STATUS_OK)
        return base::Error{base::ErrorCode::BadData,
                           base::StrCat("damaged WebP picture (status ", status, ")")};
    for (int top = 0, bottom = picture.height - 1; top < bottom; ++top, --bottom)
        std::swap_ranges(picture.pixels.begin() + static_cast<std::ptrdiff_t>(stride) * top,
                         picture.pixels.begin() + static_cast<std::ptrdiff_t>(stride) * (top + 1),
                         picture.pixels.begin() + static_cast<std::ptrdiff_t>(stride) * bottom);
    image.hadAlpha = ComposeOverBlack(picture);
    return image;
}

} // namespace lumenar::platform::detail
