#include "records/DibImage.h"

#include "base/StrCat.h"

namespace lumenar::records {

using base::Error;
using base::ErrorCode;
using base::StrCat;

base::Result<DibImage> DibImage::Create(int width, int height, std::int32_t pelsPerMeter)
{
    if (width <= 0 || height <= 0)
        return Error{ErrorCode::InvalidInput, StrCat("picture size ", width, "x", height, " is empty")};
    if (static_cast<std::int64_t>(width) * height > kMaxFramePixels)
        return Error{ErrorCode::TooLarge,
                     StrCat("picture size ", width, "x", height, " is beyond ", kMaxFramePixels, " pixels")};
    DibImage image;
    BitmapInfoHeader& h = image.info_.header;
    h.biSize = sizeof(BitmapInfoHeader);
    h.biWidth = width;
    h.biHeight = height;
    h.biPlanes = 1;
    h.biBitCount = 32;
    h.biCompression = 0;
    const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    // Compatibility: the stored size is a 32-bit word; frames past 4 GiB are refused above anyway.
    h.biSizeImage = static_cast<std::uint32_t>(size);
    h.biXPelsPerMeter = pelsPerMeter;
    h.biYPelsPerMeter = pelsPerMeter;
    image.pixels_.assign(size, 0);
    return image;
}

} // namespace lumenar::records
