#include "app/Previews.h"

#include "app/Commands.h"
#include "app/InputFiles.h"
#include "base/StrCat.h"
#include "effects/EffectProtocol.h"
#include "playback/CaptionLayout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace lumenar::app {

using base::Error;
using base::ErrorCode;
using base::StrCat;

std::vector<Progress> EvenSteps(int count)
{
    if (count <= 1)
        return {Progress{1, 1}};
    std::vector<Progress> steps;
    for (int i = 0; i < count; ++i)
        steps.push_back(Progress{i, count - 1});
    return steps;
}

base::Status RenderTransition(effects::EffectRegistry& registry, int row, const platform::BgrxPicture& from,
                              const platform::BgrxPicture& to, std::span<const Progress> steps,
                              const FrameSink& sink)
{
    platform::BgrxPicture frame{from.width, from.height, std::vector<std::uint8_t>(from.pixels.size())};
    effects::EffectParams block{};
    block.source = from.pixels.data();
    block.target = to.pixels.data();
    block.output = frame.pixels.data();
    block.width = from.width;
    block.height = from.height;
    block.progressNum = 0;
    block.progressDen = 100;
    registry.RunPicture(row, effects::EffectInit, &block);
    base::Status status;
    for (const Progress& step : steps) {
        block.progressNum = step.num;
        block.progressDen = step.den;
        registry.RunPicture(row, effects::EffectRender, &block);
        if (status = sink(frame); !status.ok())
            break;
    }
    registry.RunPicture(row, effects::EffectRelease, nullptr);
    return status;
}

base::Status RenderCaption(effects::EffectRegistry& registry, int row,
                           const platform::BgrxPicture& background, const records::TextRecord& style,
                           const std::string& text, std::span<const Progress> steps, const FrameSink& sink)
{
    playback::PreparedCaption caption;
    const int count =
        playback::PrepareCaption(style, text, playback::CaptionScale(background.width), caption);
    if (count == 0 && !text.empty())
        return Error{ErrorCode::NotFound, "no font could be made for the caption"};
    platform::BgrxPicture frame = background;
    effects::TextEffectParams block{};
    block.size = 40;
    block.dcBits = frame.pixels.data();
    block.text = &caption.record;
    block.glyphs = caption.glyphs.data();
    block.glyphCount = count;
    block.width = frame.width;
    block.height = frame.height;
    block.progressNum = 0;
    block.progressDen = 100;
    if (count > 0 && registry.RunText(row, effects::EffectInit, block) != 0) {
        registry.RunText(row, effects::EffectRelease, block);
        return Error{ErrorCode::Unsupported, "the text effect could not prepare the caption's glyphs"};
    }
    base::Status status;
    for (const Progress& step : steps) {
        std::copy(background.pixels.begin(), background.pixels.end(), frame.pixels.begin());
        block.progressNum = step.num;
        block.progressDen = step.den;
        if (count > 0)
            registry.RunText(row, effects::EffectRender, block);
        if (status = sink(frame); !status.ok())
            break;
    }
    if (count > 0)
        registry.RunText(row, effects::EffectRelease, block);
    return status;
}

base::Result<FrameOutput> FrameOutput::Open(const std::string& path, int width, int height, int frameMs)
{
    FrameOutput output;
    output.path_ = path;
    if (platform::IsAnimationPath(path)) {
        output.animation_ = LUM_TRY(platform::OpenAnimationFile(path, width, height, frameMs));
        return output;
    }
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (!std::filesystem::is_directory(path, error))
        return Error{ErrorCode::Io, StrCat(path, ": not a folder that frames can be written to (name a .webp "
                                                 "or .gif file for an animation)")};
    return output;
}

base::Status FrameOutput::Add(const platform::BgrxPicture& frame)
{
    if (animation_)
        return animation_->Add(frame);
    char name[32];
    std::snprintf(name, sizeof name, "frame-%03d.png", written_++);
    return platform::WriteImageFile((std::filesystem::path(path_) / name).string(), frame);
}

base::Status FrameOutput::Finish()
{
    return animation_ ? animation_->Finish() : base::Status{};
}

int TakeFrameOption(const std::string& arg, const std::string& value, FrameOptions& options)
{
    if (arg == "--frames")
        return ParseInt(value, 2, kMaxFrames, options.frames)
                   ? 0
                   : Fail(value, StrCat("not a frame count (2-", kMaxFrames, ")"));
    if (arg == "--frame-ms")
        return ParseInt(value, 10, 10000, options.frameMs) ? 0
                                                           : Fail(value, "not a frame time (10-10000 ms)");
    return -1;
}

int WriteFrames(const std::string& out, int width, int height, int frameMs,
                const std::function<base::Status(const FrameSink&)>& render)
{
    auto output = FrameOutput::Open(out, width, height, frameMs);
    if (!output.ok())
        return Fail(out, WithoutPath(output.error().message, out));
    base::Status status = render([&](const platform::BgrxPicture& frame) { return output->Add(frame); });
    if (status.ok())
        status = output->Finish();
    return status.ok() ? 0 : Fail(out, WithoutPath(status.error().message, out));
}

platform::BgrxPicture SamplePicture(int which, int width, int height)
{
    platform::BgrxPicture picture{width, height,
                                  std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 4)};
    auto mix = [](double a, double b, double t) { return a + (b - a) * t; };
    for (int row = 0; row < height; ++row) {
        // u, v in 0..1 from the top-left corner; rows are stored bottom row first.
        const double v = (height - 1 - row + 0.5) / height;
        for (int x = 0; x < width; ++x) {
            const double u = (x + 0.5) / width;
            double r, g, b;
            if (which == 0) {
                // Dawn: a sky from violet to orange, a pale sun, two ranges of hills.
                r = mix(70, 250, v), g = mix(40, 150, v), b = mix(140, 90, v);
                const double sun = std::hypot((u - 0.68) * width / height, v - 0.55);
                if (sun < 0.11)
                    r = 255, g = 236, b = 170;
                if (v > 0.62 + 0.06 * std::sin(u * 9.0))
                    r = 60 + 40 * u, g = 110 + 30 * v, b = 70;
                if (v > 0.78 + 0.05 * std::sin(u * 5.0 + 2.0))
                    r = 30, g = 80 + 60 * u, b = 40;
            } else {
                // Night: a blue sky with a moon over a chequered field.
                r = mix(10, 40, v), g = mix(20, 60, v), b = mix(70, 150, v);
                const double moon = std::hypot((u - 0.25) * width / height, v - 0.25);
                if (moon < 0.12)
                    r = 235, g = 235, b = 220;
                if (v > 0.6) {
                    const bool light = (static_cast<int>(u * 10) + static_cast<int>(v * 12)) % 2 == 0;
                    r = light ? 200 : 40, g = light ? 210 : 60, b = light ? 230 : 120;
                }
            }
            std::uint8_t* pixel = &picture.pixels[(static_cast<std::size_t>(row) * width + x) * 4];
            pixel[0] = static_cast<std::uint8_t>(std::clamp(b, 0.0, 255.0));
            pixel[1] = static_cast<std::uint8_t>(std::clamp(g, 0.0, 255.0));
            pixel[2] = static_cast<std::uint8_t>(std::clamp(r, 0.0, 255.0));
        }
    }
    return picture;
}

} // namespace lumenar::app
