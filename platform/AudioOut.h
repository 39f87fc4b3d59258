#pragma once

#include "base/Result.h"
#include "platform/Clock.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenar::platform {

/// A PCM format block, as a wave file's "fmt " chunk holds it.
struct WaveFormat
{
    std::uint16_t formatTag = 1; ///< 1 = PCM.
    std::uint16_t channels = 1;
    std::uint32_t samplesPerSec = 8000;
    std::uint32_t avgBytesPerSec = 16000;
    std::uint16_t blockAlign = 2;
    std::uint16_t bitsPerSample = 16;
};

/// The formats every sound device here plays: PCM at kMinSampleRate to kMaxSampleRate samples per
/// second, one or two channels, 8 or 16 bits, with a block alignment and a byte rate that agree with
/// them. Anything else is refused before a buffer is sized from it: a wave header's byte rate alone
/// could ask for gigabytes, and a rate of a few hertz makes the device's period last minutes.
inline constexpr std::uint32_t kMinSampleRate = 8000;
inline constexpr std::uint32_t kMaxSampleRate = 192000;

/// Ok when the devices play `format`; otherwise an Unsupported error that names the first field that
/// is wrong and its value. Any thread.
base::Status CheckPlayableFormat(const WaveFormat& format);

/// Up to two writable regions of a ring buffer; the second is the part that wrapped to the start.
struct LockedRegions
{
    std::uint8_t* first = nullptr;
    std::uint32_t firstBytes = 0;
    std::uint8_t* second = nullptr;
    std::uint32_t secondBytes = 0;
};

enum class LockResult
{
    Ok,
    BufferLost, ///< The device took the buffer's memory away; Restore() it, the data is gone.
    Failed,     ///< Anything else (a range larger than the buffer, a device error).
};

/// Status bits of a sound buffer.
enum SoundStatus : std::uint32_t
{
    kStatusPlaying = 0x1,
    kStatusBufferLost = 0x2,
    kStatusLooping = 0x4,
};

/// One looping ring buffer on a sound device. Lock, copy and Unlock happen on one thread, and the
/// buffer stays locked against the device in between (keep it short); everything else may be called
/// from any thread.
class SoundBuffer
{
public:
    virtual ~SoundBuffer() = default;
    virtual std::uint32_t Size() const = 0;
    /// Locks `bytes` bytes from `offset` (wrapping at the end) for writing.
    virtual LockResult Lock(std::uint32_t offset, std::uint32_t bytes, LockedRegions& regions) = 0;
    virtual void Unlock(const LockedRegions& regions) = 0;
    /// Gives a lost buffer its memory back (contents undefined). False when the device refuses.
    virtual bool Restore() = 0;
    /// Plays from the current position, looping round the ring.
    virtual bool PlayLooping() = 0;
    virtual void Stop() = 0;
    /// Moves the play position (playing or not).
    virtual void SetPosition(std::uint32_t offset) = 0;
    /// The play cursor, or empty when the device cannot say.
    virtual std::optional<std::uint32_t> PlayCursor() = 0;
    /// SoundStatus bits, or empty when the device cannot say.
    virtual std::optional<std::uint32_t> Status() = 0;
};

/// A sound output device that makes ring buffers.
class SoundDevice
{
public:
    virtual ~SoundDevice() = default;
    /// A silent buffer of `bytes` bytes for `format`, stopped at position 0; null on failure and for a
    /// format that CheckPlayableFormat refuses.
    virtual std::unique_ptr<SoundBuffer> CreateBuffer(const WaveFormat& format, std::uint32_t bytes) = 0;
};

/// The default sound output through SDL2's audio; null when there is no audio device (narration is
/// then silent). Each buffer plays on a device of its own whose period lasts at most kMaxPeriodMs, so
/// destroying a buffer (which waits for the device's thread to finish its period) takes at most that.
inline constexpr std::uint32_t kMaxPeriodMs = 40;
std::unique_ptr<SoundDevice> OpenSdlSoundDevice();

/// A headless device: a playing buffer's cursor advances with `clock` at the format's byte rate, and
/// every byte it plays is recorded, so tests can hear what was played. Tests can also make the next
/// lock report a lost buffer or the next buffer creation fail. Any thread.
class NullSoundDevice final : public SoundDevice
{
public:
    explicit NullSoundDevice(Clock& clock);
    ~NullSoundDevice() override;
    std::unique_ptr<SoundBuffer> CreateBuffer(const WaveFormat& format, std::uint32_t bytes) override;

    /// Everything played so far, in order, by every buffer, as of each buffer's last query (any call on
    /// a buffer first plays what the clock has moved past).
    std::vector<std::uint8_t> Played();
    /// Writes Played() as a canonical wave file in the last buffer's format.
    base::Status WritePlayedWave(const std::string& path);
    int BuffersCreated() const;
    /// What the device has played up to `untilMs` on its clock, placed at the clock time it was played
    /// at, from where the previous call ended (the first call starts at time 0); silence where nothing
    /// played. Every playing buffer first plays what the clock has moved past. The record is in the
    /// format of the first buffer made (`format` receives it); buffers of another format are not
    /// recorded. Empty, and `format` untouched, before any buffer exists. Any thread.
    std::vector<std::uint8_t> TakeTimeline(std::uint64_t untilMs, WaveFormat& format);
    void FailNextCreate();
    void LoseBufferOnNextLock();

    struct Shared;

private:
    std::shared_ptr<Shared> shared_;
};

} // namespace lumenar::platform
