#include "platform/ImageFile.h"

#include <libexif/exif-data.h>

#include <memory>

namespace lumenar::platform {

namespace {

struct ExifDataUnref
{
    void operator()(ExifData* data) const { exif_data_unref(data); }
};
using ExifDataPtr = std::unique_ptr<ExifData, ExifDataUnref>;

} // namespace

int ExifOrientation(std::span<const std::uint8_t> jpeg)
{
    if (jpeg.empty())
        return 1;
    ExifDataPtr data(exif_data_new_from_data(jpeg.data(), static_cast<unsigned int>(jpeg.size())));
    if (!data)
        return 1;
    ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (entry == nullptr || entry->format != EXIF_FORMAT_SHORT || entry->components < 1)
        return 1;
    const int orientation = exif_get_short(entry->data, exif_data_get_byte_order(data.get()));
    return orientation >= 1 && orientation <= 8 ? orientation : 1;
}

} // namespace lumenar::platform
