#include "app/RenderOutput.h"

#include "base/Stopwatch.h"
#include "base/StrCat.h"
#include "platform/ImageFile.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

namespace lumenar::app {

namespace {

using base::StrCat;
namespace fs = std::filesystem;

platform::BgrxPicture BottomUp(const std::vector<std::uint8_t>& topDown, int width, int height)
{
    platform::BgrxPicture picture{width, height, {}};
    const std::size_t row = std::size_t(width) * 4;
    picture.pixels.resize(row * std::size_t(height));
    for (int y = 0; y < height; ++y)
        std::memcpy(picture.pixels.data() + std::size_t(height - 1 - y) * row,
                    topDown.data() + std::size_t(y) * row, row);
    return picture;
}

class PngFolderOutput final : public RenderOutput
{
public:
    PngFolderOutput(std::string folder, int width, int height)
        : folder_(std::move(folder)), width_(width), height_(height)
    {
    }
    base::Status Add(const Shot& shot, const std::vector<std::uint8_t>& topDown,
                     const std::shared_ptr<const platform::VideoPicture>&) override
    {
        char name[64];
        std::snprintf(name, sizeof name, "/%06ld-%llu.png", number_++,
                      static_cast<unsigned long long>(shot.ms));
        const std::string path = folder_ + name;
        // A picture that stays is encoded once; its other frames are copies of the file.
        if (shot.repeat && !last_.empty()) {
            std::error_code error;
            fs::copy_file(last_, path, fs::copy_options::overwrite_existing, error);
            if (error)
                return base::Error{base::ErrorCode::Io, base::StrCat(path, ": ", error.message())};
        } else {
            platform::BgrxPicture picture;
            {
                base::Stopwatch converting(timings_.convert);
                picture = BottomUp(topDown, width_, height_);
            }
            base::Stopwatch encoding(timings_.encode);
            LUM_TRY(platform::WriteImageFile(path, picture));
        }
        last_ = path;
        return {};
    }
    base::Status Finish(std::uint64_t) override { return {}; }
    platform::VideoTimings Timings() const override { return timings_; }

private:
    std::string folder_;
    int width_;
    int height_;
    long number_ = 0;
    std::string last_;
    platform::VideoTimings timings_;
};

class AnimationOutput final : public RenderOutput
{
public:
    AnimationOutput(std::unique_ptr<platform::AnimationWriter> writer, int width, int height)
        : writer_(std::move(writer)), width_(width), height_(height)
    {
    }
    base::Status Add(const Shot& shot, const std::vector<std::uint8_t>& topDown,
                     const std::shared_ptr<const platform::VideoPicture>&) override
    {
        // A repeat lengthens the frame held; a new picture writes it out.
        if (shot.repeat && held_)
            return {};
        LUM_TRY(WriteHeld(shot.ms));
        base::Stopwatch converting(timings_.convert);
        held_ = BottomUp(topDown, width_, height_);
        heldMs_ = shot.ms;
        return {};
    }
    base::Status Finish(std::uint64_t endMs) override
    {
        LUM_TRY(WriteHeld(endMs));
        base::Stopwatch encoding(timings_.encode);
        return writer_->Finish();
    }
    platform::VideoTimings Timings() const override { return timings_; }

private:
    // GIF times are in hundredths: each frame ends on the hundredth nearest its end, so that the
    // rounding never adds up; a frame shorter than that is left out.
    base::Status WriteHeld(std::uint64_t untilMs)
    {
        if (!held_)
            return {};
        base::Stopwatch encoding(timings_.encode);
        const std::uint64_t start = (heldMs_ + 5) / 10 * 10;
        const std::uint64_t end = (untilMs + 5) / 10 * 10;
        if (end > start)
            LUM_TRY(writer_->AddFor(*held_, static_cast<int>(std::min<std::uint64_t>(end - start, 655350))));
        held_.reset();
        return {};
    }

    std::unique_ptr<platform::AnimationWriter> writer_;
    int width_;
    int height_;
    std::optional<platform::BgrxPicture> held_;
    std::uint64_t heldMs_ = 0;
    platform::VideoTimings timings_;
};

class VideoOutput final : public RenderOutput
{
public:
    explicit VideoOutput(std::unique_ptr<platform::VideoWriter> writer) : writer_(std::move(writer)) {}
    std::shared_ptr<const platform::VideoPicture> Prepare(const std::vector<std::uint8_t>& topDown) override
    {
        // A picture that cannot be converted goes the long way, and Add reports why.
        auto converted = writer_->Convert(topDown);
        return converted ? std::move(*converted) : nullptr;
    }
    base::Status Add(const Shot& shot, const std::vector<std::uint8_t>& topDown,
                     const std::shared_ptr<const platform::VideoPicture>& prepared) override
    {
        if (shot.repeat)
            return writer_->RepeatFrame(shot.ms);
        if (prepared)
            return writer_->AddPicture(prepared, shot.ms);
        return writer_->AddFrame(topDown, shot.ms);
    }
    base::Status Sound(std::span<const std::uint8_t> pcm, const platform::WaveFormat& format) override
    {
        return writer_->AddSound(pcm, format);
    }
    base::Status Finish(std::uint64_t endMs) override { return writer_->Finish(endMs); }
    platform::VideoTimings Timings() const override { return writer_->Timings(); }

private:
    std::unique_ptr<platform::VideoWriter> writer_;
};

} // namespace

std::unique_ptr<RenderOutput> MakePngFolderOutput(std::string folder, int width, int height)
{
    return std::make_unique<PngFolderOutput>(std::move(folder), width, height);
}

std::unique_ptr<RenderOutput> MakeAnimationOutput(std::unique_ptr<platform::AnimationWriter> writer,
                                                  int width, int height)
{
    return std::make_unique<AnimationOutput>(std::move(writer), width, height);
}

std::unique_ptr<RenderOutput> MakeVideoOutput(std::unique_ptr<platform::VideoWriter> writer)
{
    return std::make_unique<VideoOutput>(std::move(writer));
}

RenderPipeline::RenderPipeline(std::unique_ptr<RenderOutput> output, int fps, std::uint64_t fromMs,
                               std::uint64_t toMs)
    : output_(std::move(output)), timeline_(fps, fromMs, toMs), fromMs_(fromMs), toMs_(toMs),
      writer_([this] { Run(); })
{
}

RenderPipeline::~RenderPipeline()
{
    Stop();
}

void RenderPipeline::Picture(std::uint64_t ms, const std::vector<std::uint8_t>& topDown)
{
    std::unique_lock guard(lock_);
    room_.wait(guard, [this] { return pictures_ < kMaxQueuedPictures || stop_; });
    if (stop_)
        return;
    ++pictures_;
    // Converted outside the lock: while this thread converts, the writer thread encodes.
    guard.unlock();
    std::shared_ptr<const platform::VideoPicture> prepared = output_->Prepare(topDown);
    guard.lock();
    queue_.push_back(PictureEvent{ms, prepared ? std::vector<std::uint8_t>{} : topDown, std::move(prepared)});
    changed_.notify_all();
}

void RenderPipeline::Sound(std::uint64_t atMs, std::vector<std::uint8_t> pcm,
                           const platform::WaveFormat& format)
{
    std::lock_guard guard(lock_);
    queue_.push_back(SoundEvent{atMs, std::move(pcm), format});
    changed_.notify_all();
}

base::Status RenderPipeline::Finish(std::uint64_t ms)
{
    {
        std::lock_guard guard(lock_);
        queue_.push_back(EndEvent{ms});
        changed_.notify_all();
    }
    Stop();
    return status_;
}

std::optional<std::string> RenderPipeline::Failure()
{
    std::lock_guard guard(lock_);
    return failure_;
}

void RenderPipeline::Stop()
{
    {
        std::lock_guard guard(lock_);
        stop_ = true;
    }
    changed_.notify_all();
    room_.notify_all();
    if (writer_.joinable())
        writer_.join();
}

void RenderPipeline::Run()
{
    for (;;) {
        Event event;
        {
            std::unique_lock guard(lock_);
            changed_.wait(guard, [this] { return stop_ || !queue_.empty(); });
            if (queue_.empty())
                return;
            event = std::move(queue_.front());
            queue_.pop_front();
            if (std::holds_alternative<PictureEvent>(event)) {
                --pictures_;
                room_.notify_all();
            }
        }
        if (!status_.ok())
            continue;
        base::Status done = Handle(event);
        if (!done.ok()) {
            std::lock_guard guard(lock_);
            failure_ = done.error().message;
            status_ = std::move(done);
        }
    }
}

base::Status RenderPipeline::Handle(Event& event)
{
    if (auto* picture = std::get_if<PictureEvent>(&event)) {
        for (const Shot& shot : timeline_.Present(picture->ms))
            LUM_TRY(output_->Add(shot, held_.topDown, held_.prepared));
        held_ = std::move(*picture);
        return {};
    }
    if (auto* sound = std::get_if<SoundEvent>(&event))
        return CutSound(*sound);
    const std::uint64_t end = std::get<EndEvent>(event).ms;
    for (const Shot& shot : timeline_.End(end))
        LUM_TRY(output_->Add(shot, held_.topDown, held_.prepared));
    return output_->Finish(timeline_.EndMs());
}

// Keeps the part of the sound that falls within the rendered range.
base::Status RenderPipeline::CutSound(const SoundEvent& sound)
{
    const std::uint64_t align = std::max<std::uint16_t>(sound.format.blockAlign, 1);
    auto byteAt = [&](std::uint64_t ms) {
        const std::uint64_t bytes = ms * sound.format.avgBytesPerSec / 1000;
        return bytes - bytes % align;
    };
    const std::uint64_t first = byteAt(sound.ms);
    const std::uint64_t last = first + sound.pcm.size();
    const std::uint64_t from = std::max(first, byteAt(fromMs_));
    const std::uint64_t to = toMs_ == 0 ? last : std::min(last, byteAt(toMs_));
    if (from >= to)
        return {};
    return output_->Sound(std::span(sound.pcm).subspan(from - first, to - from), sound.format);
}

} // namespace lumenar::app
