#pragma once

#include "base/Result.h"
#include "platform/AudioOut.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace lumenar::platform {

/// The video files this layer writes.
enum class VideoKind
{
    Mp4,  ///< H.264 video, AAC sound.
    Webm, ///< VP9 video, Opus sound.
};

/// The kind that `path`'s extension names (".mp4", ".webm", any case), or nothing.
std::optional<VideoKind> VideoKindOf(const std::string& path);

struct VideoSettings
{
    int width = 0;  ///< Even, 16 or more.
    int height = 0; ///< Even, 16 or more.
    /// Frames per second of a constant-rate video. 0 makes a variable-rate video in which every frame
    /// lasts until the next one begins, so that a still picture is one frame however long it stays.
    int framesPerSecond = 0;
    int quality = 75;      ///< 1 (smallest file) to 100 (best picture).
    bool withSound = true; ///< A sound track (silence where no sound was given).
};

/// Where a writer's time went so far, in seconds of the calling thread's wall time.
struct VideoTimings
{
    double convert = 0; ///< Colour conversion of the pictures, resampling of the sound.
    double encode = 0;  ///< Encoding and muxing.
};

/// A picture converted to a video's colours, ready to encode (VideoWriter::Convert makes it).
class VideoPicture
{
public:
    virtual ~VideoPicture() = default;
};

/// A video being written frame by frame: pictures converted once to the encoder's colours, sound
/// resampled to the encoder's rate, both muxed in time order. One thread at a time, except Convert,
/// which one other thread may call meanwhile (the conversion of the next picture then runs while this
/// one is encoded).
class VideoWriter
{
public:
    virtual ~VideoWriter() = default;
    /// Encodes a picture (BGRX, top row first, width × 4 bytes a row) that is shown from `ms`. Times
    /// must grow; in a constant-rate video `ms` is rounded to the nearest frame, and a picture that
    /// lands on the frame of the one before replaces nothing (it is dropped).
    virtual base::Status AddFrame(std::span<const std::uint8_t> topDownBgrx, std::uint64_t ms) = 0;
    /// Converts a picture (as AddFrame takes it) for AddPicture; fails on a picture of another size.
    virtual base::Result<std::shared_ptr<const VideoPicture>>
    Convert(std::span<const std::uint8_t> topDownBgrx) = 0;
    /// AddFrame for a picture Convert made.
    virtual base::Status AddPicture(std::shared_ptr<const VideoPicture> picture, std::uint64_t ms) = 0;
    /// Encodes the last picture again, shown from `ms`, without converting it again. Nothing before
    /// the first AddFrame.
    virtual base::Status RepeatFrame(std::uint64_t ms) = 0;
    /// Appends sound that follows what was appended before (the track starts at time 0). Every call
    /// gives the same PCM format (one or two channels, 8 or 16 bits); another is an error.
    virtual base::Status AddSound(std::span<const std::uint8_t> pcm, const WaveFormat& format) = 0;
    /// Ends the video at `endMs` (the last picture lasts until then, the sound is cut or padded with
    /// silence to it), flushes the encoders and completes the file. A writer destroyed before Finish
    /// leaves an incomplete file, which its caller removes.
    virtual base::Status Finish(std::uint64_t endMs) = 0;
    virtual VideoTimings Timings() const = 0;
};

/// Opens `path` for a video of `kind` (the extension of `path` does not matter, so a temporary name
/// works). Fails with the library's message for a path that cannot be written or settings the
/// encoders refuse. Any thread; the writer belongs to its caller.
base::Result<std::unique_ptr<VideoWriter>> OpenVideoFile(const std::string& path, VideoKind kind,
                                                         const VideoSettings& settings);

} // namespace lumenar::platform
