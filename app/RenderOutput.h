#pragma once

#include "app/FrameTimeline.h"
#include "base/Result.h"
#include "platform/AnimationFile.h"
#include "platform/AudioOut.h"
#include "platform/VideoFile.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace lumenar::app {

/// What a render writes to: frames of the pictures a player presented, and the sound it played.
/// Writer thread only.
class RenderOutput
{
public:
    virtual ~RenderOutput() = default;
    /// Converts a picture ahead, on the thread that presents it (the only call made from there), so
    /// that the conversion runs while the writer thread encodes; null when Add converts it instead.
    virtual std::shared_ptr<const platform::VideoPicture> Prepare(const std::vector<std::uint8_t>&)
    {
        return nullptr;
    }
    /// One frame of the picture `topDown` (BGRX, top row first, the output's size), or of `prepared`
    /// when Prepare made it (`topDown` is then empty).
    virtual base::Status Add(const Shot& shot, const std::vector<std::uint8_t>& topDown,
                             const std::shared_ptr<const platform::VideoPicture>& prepared) = 0;
    /// Sound that follows the sound before, from output time 0 on. Outputs without sound drop it.
    virtual base::Status Sound(std::span<const std::uint8_t>, const platform::WaveFormat&) { return {}; }
    /// Ends the output at `endMs` (output time).
    virtual base::Status Finish(std::uint64_t endMs) = 0;
    /// Seconds spent converting and encoding so far.
    virtual platform::VideoTimings Timings() const = 0;
};

/// PNG files `folder/NNNNNN-<ms>.png`, numbered from 0; a repeated picture is a copy of its file.
std::unique_ptr<RenderOutput> MakePngFolderOutput(std::string folder, int width, int height);
/// An animation whose frames last as long as their pictures stay, to the nearest 10 ms.
std::unique_ptr<RenderOutput> MakeAnimationOutput(std::unique_ptr<platform::AnimationWriter> writer,
                                                  int width, int height);
std::unique_ptr<RenderOutput> MakeVideoOutput(std::unique_ptr<platform::VideoWriter> writer);

/// Takes the pictures a player presents and the sound it plays, in clock order, and writes them to an
/// output on a thread of its own, so that composing the next picture and encoding this one overlap. A
/// full queue holds the presenting thread back: the render's clock does not move meanwhile, so nothing
/// is lost. Only what falls within [fromMs, toMs) (toMs 0: no end) is written, shifted to start at 0.
class RenderPipeline
{
public:
    RenderPipeline(std::unique_ptr<RenderOutput> output, int fps, std::uint64_t fromMs, std::uint64_t toMs);
    ~RenderPipeline();
    RenderPipeline(const RenderPipeline&) = delete;
    RenderPipeline& operator=(const RenderPipeline&) = delete;

    /// A picture presented at `ms` on the render's clock; copies it. Any thread.
    void Picture(std::uint64_t ms, const std::vector<std::uint8_t>& topDown);
    /// Sound played from `atMs` on, in `format`. Any thread.
    void Sound(std::uint64_t atMs, std::vector<std::uint8_t> pcm, const platform::WaveFormat& format);
    /// Ends the output at `ms` and waits for the writer. Returns the first failure.
    base::Status Finish(std::uint64_t ms);
    /// Where the writer's time went; after Finish.
    platform::VideoTimings Timings() const { return output_->Timings(); }
    /// The first failure so far, if any (the writer stops writing after it). Any thread.
    std::optional<std::string> Failure();

private:
    static constexpr int kMaxQueuedPictures = 6;
    struct PictureEvent
    {
        std::uint64_t ms;
        std::vector<std::uint8_t> topDown; // Empty when the output prepared the picture.
        std::shared_ptr<const platform::VideoPicture> prepared;
    };
    struct SoundEvent
    {
        std::uint64_t ms;
        std::vector<std::uint8_t> pcm;
        platform::WaveFormat format;
    };
    struct EndEvent
    {
        std::uint64_t ms;
    };
    using Event = std::variant<PictureEvent, SoundEvent, EndEvent>;

    void Stop();
    void Run();
    base::Status Handle(Event& event);
    base::Status CutSound(const SoundEvent& sound);

    std::unique_ptr<RenderOutput> output_;
    FrameTimeline timeline_;
    std::uint64_t fromMs_;
    std::uint64_t toMs_;
    PictureEvent held_;   // Writer thread: the picture on screen.
    base::Status status_; // Writer thread; read after the join.
    std::mutex lock_;     // Guards queue_, pictures_, stop_ and failure_.
    std::condition_variable changed_;
    std::condition_variable room_;
    std::deque<Event> queue_;
    int pictures_ = 0;
    bool stop_ = false;
    std::optional<std::string> failure_;
    std::thread writer_;
};

} // namespace lumenar::app
