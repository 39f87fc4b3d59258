#include "app/PictureFiles.h"

#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

namespace lumenar::app {

base::Result<platform::BgrxPicture> ReadPictureFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return platform::ReadImageFile(path); // Says why the file cannot be read.
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                          std::istreambuf_iterator<char>()};
    if (bytes.size() < 2 || bytes[0] != 0xFF || bytes[1] != 0xD8)
        return platform::ReadImageFile(path);
    // A damaged photo fails this command instead of ending the process.
    platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::FailPhoto);
    codec::Photo photo;
    if (codec::DecodePhoto(photo, bytes) != 1 || photo.Bitmap() == nullptr || photo.Bitmap()->BitCount() == 0)
        return base::Error{base::ErrorCode::BadData, path + ": not a photo the player can decode"};
    const auto pixels = photo.Bitmap()->Pixels();
    return platform::BgrxPicture{photo.Width(), photo.Height(),
                                 std::vector<std::uint8_t>(pixels.begin(), pixels.end())};
}

} // namespace lumenar::app
