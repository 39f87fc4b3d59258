#pragma once

#include "base/Result.h"
#include "platform/ImageFile.h"

#include <string>

namespace lumenar::app {

/// Reads a PNG or BMP file, or a JPEG photo through the player's own decoder (a damaged photo fails the
/// read instead of ending the process). Messages leave out the path: the command names the file.
base::Result<platform::BgrxPicture> ReadPictureFile(const std::string& path);

} // namespace lumenar::app
