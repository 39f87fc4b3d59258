#include "platform/AnimationFile.h"

#include "base/StrCat.h"
#include "platform/Path.h"

#include <algorithm>

namespace lumenar::platform {

bool IsAnimationPath(const std::string& path)
{
    const std::string ext = LowerExtension(path);
    return ext == "webp" || ext == "gif";
}

base::Result<std::unique_ptr<AnimationWriter>> OpenAnimationFile(const std::string& path, int width,
                                                                 int height, int frameMs)
{
    if (width <= 0 || height <= 0 || width > 16383 || height > 16383)
        return base::Error{base::ErrorCode::InvalidInput, base::StrCat(path, ": an animation of ", width, "x",
                                                                       height, " cannot be written")};
    frameMs = std::clamp(frameMs, 10, 65535);
    const std::string ext = LowerExtension(path);
    if (ext == "webp")
        return detail::OpenWebp(path, width, height, frameMs);
    if (ext == "gif")
        return detail::OpenGif(path, width, height, frameMs);
    return base::Error{base::ErrorCode::Unsupported,
                       base::StrCat(path, ": an animation is written as .webp or .gif")};
}

} // namespace lumenar::platform
