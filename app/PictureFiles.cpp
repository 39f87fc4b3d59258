#include "app/PictureFiles.h"

#include "app/InputFiles.h"
#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"

#include <string>

namespace lumenar::app {

base::Result<platform::BgrxPicture> ReadPictureFile(const std::string& path)
{
    const std::vector<std::uint8_t> bytes = LUM_TRY(ReadInputFile(path));
    if (bytes.size() < 2 || bytes[0] != 0xFF || bytes[1] != 0xD8) {
        auto picture = platform::ReadImageFile(path);
        if (!picture.ok())
            return base::Error{picture.error().code, std::string(WithoutPath(picture.error().message, path))};
        return picture;
    }
    // A damaged photo fails this command instead of ending the process.
    platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::FailPhoto);
    codec::Photo photo;
    if (codec::DecodePhoto(photo, bytes) != 1 || photo.Bitmap() == nullptr || photo.Bitmap()->BitCount() == 0)
        return base::Error{base::ErrorCode::BadData, "not a photo the player can decode"};
    const auto pixels = photo.Bitmap()->Pixels();
    return platform::BgrxPicture{photo.Width(), photo.Height(),
                                 std::vector<std::uint8_t>(pixels.begin(), pixels.end())};
}

} // namespace lumenar::app
