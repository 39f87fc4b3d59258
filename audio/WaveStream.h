#pragma once

#include "base/Result.h"
#include "platform/AudioOut.h"
#include "platform/Timer.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace lumenar::audio {

/// Streams narration chunks through one looping ring buffer on a sound device. Each chunk becomes a
/// temporary wave file ("wa" prefix, in the control's temporary folder), is appended behind the data
/// written before, and the file is deleted. The first chunk creates the buffer: 150 seconds at its
/// byte rate. A watcher ticking every 300 ms on the timer service stops the buffer once the play
/// cursor has overtaken the written data, so narration that arrives late does not replay old sound.
///
/// Appends and StartPlayback run on the film loader thread; WatchBuffer runs on the timer's thread.
/// The only guard between them is the writing flag, as the cursors are single atomic words.
class WaveStream
{
public:
    /// Buffer size in seconds of the first chunk's format.
    static constexpr std::uint32_t kBufferSeconds = 150;
    static constexpr std::uint32_t kWatchPeriodMs = 300;
    static constexpr std::uint32_t kWatchResolutionMs = 10;

    /// `device` may be null (no sound device: nothing is ever played). The device and the timer
    /// service must outlive the stream. Starts the watcher.
    WaveStream(platform::SoundDevice* device, platform::TimerService& timers, std::string tempFolder);
    /// Stops the watcher, then releases the buffer.
    ~WaveStream();
    WaveStream(const WaveStream&) = delete;
    WaveStream& operator=(const WaveStream&) = delete;

    /// Decodes a compressed narration chunk to a temporary wave file and appends it. Damage the decoder
    /// met (frames of the wrong size, packets without frames, a narration past the length limit) is
    /// reported once for the chunk through ReportBox, with its counts and `itemName`. Always 1.
    int AppendCompressed(std::span<const std::uint8_t> data, std::string_view itemName = {});
    /// Writes a wave item's bytes to a temporary file as they stand and appends it. A wave whose format
    /// the sound output does not play (platform::CheckPlayableFormat) is reported once through
    /// ReportBox, naming `itemName`, and dropped: the film plays on without it. Always 1.
    int AppendWaveData(std::span<const std::uint8_t> data, std::string_view itemName = {});
    /// Plays the buffer, looping from its current position, unless it is playing; a lost buffer is
    /// restored instead (and plays at the next call).
    void StartPlayback();
    /// The watcher's tick (public so a host's own timer could drive it).
    void WatchBuffer();

    // Observers for tests and traces; any thread.
    bool HasBuffer() const { return buffer_.load() != nullptr; }
    /// Whether the buffer reports that it is playing (false without a buffer).
    bool IsPlaying() const;
    std::uint32_t BufferBytes() const { return bufferBytes_; }
    std::uint32_t WritePos() const { return writePos_.load(); }
    std::uint32_t PreviousWritePos() const { return previousWritePos_.load(); }
    bool WriteWrapped() const { return writeWrapped_.load(); }
    bool PlayWrapped() const { return playWrapped_.load(); }

private:
    void AppendWaveFile(const std::string& path, std::string_view itemName);
    base::Status CreateBuffer(std::span<const std::uint8_t> file);
    base::Status WriteData(platform::SoundBuffer& buffer, std::span<const std::uint8_t> data);

    platform::SoundDevice* device_;
    std::string tempFolder_;
    std::unique_ptr<platform::SoundBuffer> ownedBuffer_;  // Loader thread; released at teardown.
    std::atomic<platform::SoundBuffer*> buffer_{nullptr}; // What the watcher sees: set once filled.
    bool bufferMarker_ = false;                           // A buffer was made (or is being made).
    std::uint32_t bufferBytes_ = 0;
    std::atomic<std::uint32_t> writePos_{0};
    std::atomic<std::uint32_t> previousWritePos_{0};
    std::atomic<std::uint32_t> lastPlayPos_{0};
    std::atomic<bool> playWrapped_{false};
    std::atomic<bool> writeWrapped_{false};
    std::atomic<bool> writing_{false};
    std::unique_ptr<platform::PeriodicTimer> watcher_; // Last: stopped first, before what it reads goes.
};

} // namespace lumenar::audio
