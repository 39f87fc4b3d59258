#pragma once

#include "base/Result.h"
#include "platform/ImageFile.h"

#include <memory>
#include <string>

namespace lumenar::platform {

/// An animation being written frame by frame. Every frame has the size the writer was opened with.
class AnimationWriter
{
public:
    virtual ~AnimationWriter() = default;
    /// Appends one frame, shown for the writer's frame time.
    virtual base::Status Add(const BgrxPicture& frame) = 0;
    /// Appends one frame shown for `durationMs` (a GIF keeps it to the nearest 10 ms), so that a still
    /// picture is one frame however long it stays.
    virtual base::Status AddFor(const BgrxPicture& frame, int durationMs) = 0;
    /// Writes what is still held and closes the file; a writer not finished leaves no file behind.
    virtual base::Status Finish() = 0;
};

/// True when `path` names an animation this layer writes: `.webp` (lossless animated WebP, through
/// libwebp's animation encoder) or `.gif` (giflib, each frame with its own 256-colour palette).
bool IsAnimationPath(const std::string& path);

/// Opens `path` for an animation of width × height frames, each shown for frameMs milliseconds, that
/// loops for ever.
base::Result<std::unique_ptr<AnimationWriter>> OpenAnimationFile(const std::string& path, int width,
                                                                 int height, int frameMs);

namespace detail {
base::Result<std::unique_ptr<AnimationWriter>> OpenWebp(const std::string& path, int width, int height,
                                                        int frameMs);
base::Result<std::unique_ptr<AnimationWriter>> OpenGif(const std::string& path, int width, int height,
                                                       int frameMs);
} // namespace detail

} // namespace lumenar::platform
