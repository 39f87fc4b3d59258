#pragma once

#include "base/Result.h"
#include "effects/EffectRegistry.h"
#include "platform/AnimationFile.h"
#include "platform/ImageFile.h"
#include "records/TextRecord.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace lumenar::app {

/// A fraction of an effect's time, n/d with 0 <= n <= d.
struct Progress
{
    std::int32_t num = 0;
    std::int32_t den = 1;
};

/// K evenly spaced steps from 0 to full (a single step is full progress).
std::vector<Progress> EvenSteps(int count);

/// Receives each rendered frame; a failure stops the rendering.
using FrameSink = std::function<base::Status(const platform::BgrxPicture&)>;

/// Renders picture-effect `row` from `from` to `to` (same size) at each progress in turn, the way the
/// player runs a transition: one init, the renders, one release.
base::Status RenderTransition(effects::EffectRegistry& registry, int row, const platform::BgrxPicture& from,
                              const platform::BgrxPicture& to, std::span<const Progress> steps,
                              const FrameSink& sink);

/// Renders text-effect `row` for a caption of `style` and `text` over `background` at each progress in
/// turn, the way the player draws it: the caption is scaled for the frame and laid out once, and each
/// frame starts from the background. Fails when no font can be made for the caption.
base::Status RenderCaption(effects::EffectRegistry& registry, int row,
                           const platform::BgrxPicture& background, const records::TextRecord& style,
                           const std::string& text, std::span<const Progress> steps, const FrameSink& sink);

/// Where a series of frames goes, by the output's name: an animation (.webp, .gif), or else a folder
/// that receives frame-000.png, frame-001.png… (made when missing).
class FrameOutput
{
public:
    static base::Result<FrameOutput> Open(const std::string& path, int width, int height, int frameMs);
    base::Status Add(const platform::BgrxPicture& frame);
    base::Status Finish();

private:
    std::string path_;
    std::unique_ptr<platform::AnimationWriter> animation_;
    int written_ = 0;
};

/// The most frames one command renders into a series.
inline constexpr long long kMaxFrames = 1000;

/// The options of a series of frames that the preview commands share.
struct FrameOptions
{
    long long frames = 0; ///< 0: one frame at a given progress.
    long long frameMs = 80;
};

/// Takes `--frames K` (2 to kMaxFrames) or `--frame-ms M` (10 to 10000). Returns -1 when `arg` is
/// neither, 0 when the value was taken, and the failure status (having printed one line) for a bad one.
int TakeFrameOption(const std::string& arg, const std::string& value, FrameOptions& options);

/// Opens `out` as a FrameOutput, lets `render` feed it and finishes it. Returns the command's exit
/// status, having printed one line naming `out` on failure.
int WriteFrames(const std::string& out, int width, int height, int frameMs,
                const std::function<base::Status(const FrameSink&)>& render);

/// A sample picture drawn from nothing, for previews without pictures of one's own: 0 is a warm dawn
/// over hills, 1 a cool blue night with a chequered field and a moon.
platform::BgrxPicture SamplePicture(int which, int width, int height);

} // namespace lumenar::app
