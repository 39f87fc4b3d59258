#include "platform/AudioOut.h"

#include "base/StrCat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>

namespace lumenar::platform {

// State shared by the device and its buffers, which may outlive it.
struct NullSoundDevice::Shared
{
    explicit Shared(Clock& c) : clock(c) {}
    Clock& clock;
    std::mutex lock; // Guards everything below and every buffer's fields.
    std::vector<std::uint8_t> played;
    // What was played, by clock time: byte n of the record is the byte due at n / byte rate seconds.
    std::optional<WaveFormat> timelineFormat;
    std::vector<std::uint8_t> timeline; // From byte timelineTaken on: what has not been taken yet.
    std::uint64_t timelineTaken = 0;
    std::vector<SoundBuffer*> live; // Buffers that exist, so that TakeTimeline can catch them up.
    WaveFormat lastFormat;
    int created = 0;
    bool failNextCreate = false;
    bool loseNextLock = false;
};

namespace {

bool SameFormat(const WaveFormat& a, const WaveFormat& b)
{
    return a.formatTag == b.formatTag && a.channels == b.channels && a.samplesPerSec == b.samplesPerSec &&
           a.bitsPerSample == b.bitsPerSample && a.blockAlign == b.blockAlign;
}

// The first byte of the block due at `ms` on the clock.
std::uint64_t ByteAt(const WaveFormat& format, std::uint64_t ms)
{
    const std::uint64_t align = std::max<std::uint16_t>(format.blockAlign, 1);
    const std::uint64_t bytes = ms * format.avgBytesPerSec / 1000;
    return bytes - bytes % align;
}

// Extends the record to byte `end` with the format's silence. Device lock held.
void GrowTimeline(NullSoundDevice::Shared& shared, std::uint64_t end)
{
    if (shared.timelineTaken + shared.timeline.size() < end)
        shared.timeline.resize(end - shared.timelineTaken,
                               shared.timelineFormat->bitsPerSample == 8 ? 0x80 : 0);
}

class NullSoundBuffer final : public SoundBuffer
{
public:
    NullSoundBuffer(std::shared_ptr<NullSoundDevice::Shared> shared, const WaveFormat& format,
                    std::uint32_t bytes)
        : shared_(std::move(shared)), format_(format), data_(bytes, 0)
    {
        // Made by CreateBuffer, which holds the device's lock.
        recorded_ = !shared_->timelineFormat.has_value() || SameFormat(*shared_->timelineFormat, format);
        if (!shared_->timelineFormat)
            shared_->timelineFormat = format;
        shared_->live.push_back(this);
    }
    ~NullSoundBuffer() override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        CatchUp();
        std::erase(shared_->live, this);
    }

    /// Plays what the clock has moved past. Device lock held.
    void CatchUpLocked() { CatchUp(); }

    std::uint32_t Size() const override { return static_cast<std::uint32_t>(data_.size()); }

    LockResult Lock(std::uint32_t offset, std::uint32_t bytes, LockedRegions& regions) override
    {
        // The lock is held until Unlock, so the "playing" side never reads half-written data.
        shared_->lock.lock();
        if (shared_->loseNextLock) {
            shared_->loseNextLock = false;
            lost_ = true;
        }
        if (lost_ || offset >= data_.size() || bytes > data_.size() || bytes == 0) {
            const LockResult result = lost_ ? LockResult::BufferLost : LockResult::Failed;
            shared_->lock.unlock();
            return result;
        }
        CatchUp();
        const std::uint32_t first = std::min<std::uint32_t>(bytes, Size() - offset);
        regions = {data_.data() + offset, first, first < bytes ? data_.data() : nullptr, bytes - first};
        return LockResult::Ok;
    }

    void Unlock(const LockedRegions&) override { shared_->lock.unlock(); }

    bool Restore() override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        lost_ = false;
        return true;
    }

    bool PlayLooping() override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        if (lost_)
            return false;
        if (!playing_) {
            playing_ = true;
            playStartMs_ = shared_->clock.NowMs();
            playedSinceStart_ = 0;
        }
        return true;
    }

    void Stop() override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        CatchUp();
        playing_ = false;
    }

    void SetPosition(std::uint32_t offset) override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        CatchUp();
        position_ = std::min<std::uint32_t>(offset, Size() - 1);
        position_ -= position_ % std::max<std::uint16_t>(format_.blockAlign, 1);
        if (playing_) {
            playStartMs_ = shared_->clock.NowMs();
            playedSinceStart_ = 0;
        }
    }

    std::optional<std::uint32_t> PlayCursor() override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        CatchUp();
        return position_;
    }

    std::optional<std::uint32_t> Status() override
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        CatchUp();
        return (playing_ ? kStatusPlaying | kStatusLooping : 0u) | (lost_ ? kStatusBufferLost : 0u);
    }

private:
    // Plays, into the record, the bytes the clock has moved past since the last look. Lock held.
    void CatchUp()
    {
        if (!playing_)
            return;
        const std::uint64_t elapsed = shared_->clock.NowMs() - playStartMs_;
        std::uint64_t total = elapsed * format_.avgBytesPerSec / 1000;
        total -= total % std::max<std::uint16_t>(format_.blockAlign, 1);
        std::uint64_t due = total - playedSinceStart_;
        std::uint64_t at = ByteAt(format_, playStartMs_) + playedSinceStart_;
        playedSinceStart_ = total;
        while (due > 0) {
            const std::uint64_t run = std::min<std::uint64_t>(due, Size() - position_);
            shared_->played.insert(shared_->played.end(), data_.begin() + position_,
                                   data_.begin() + static_cast<std::ptrdiff_t>(position_ + run));
            // Bytes due before what was taken already come too late for the record (a clock read
            // before the last take): they are left out rather than shifting what follows.
            if (recorded_ && at + run > shared_->timelineTaken) {
                const std::uint64_t skip = at < shared_->timelineTaken ? shared_->timelineTaken - at : 0;
                GrowTimeline(*shared_, at + run);
                std::memcpy(shared_->timeline.data() + (at + skip - shared_->timelineTaken),
                            data_.data() + position_ + skip, run - skip);
            }
            at += run;
            position_ = static_cast<std::uint32_t>((position_ + run) % Size());
            due -= run;
        }
    }

    std::shared_ptr<NullSoundDevice::Shared> shared_;
    bool recorded_ = false;
    WaveFormat format_;
    std::vector<std::uint8_t> data_;
    bool playing_ = false;
    bool lost_ = false;
    std::uint32_t position_ = 0;
    std::uint64_t playStartMs_ = 0;
    std::uint64_t playedSinceStart_ = 0;
};

} // namespace

NullSoundDevice::NullSoundDevice(Clock& clock) : shared_(std::make_shared<Shared>(clock))
{
}

NullSoundDevice::~NullSoundDevice() = default;

std::unique_ptr<SoundBuffer> NullSoundDevice::CreateBuffer(const WaveFormat& format, std::uint32_t bytes)
{
    std::lock_guard<std::mutex> hold(shared_->lock);
    if (shared_->failNextCreate) {
        shared_->failNextCreate = false;
        return nullptr;
    }
    if (bytes == 0 || !CheckPlayableFormat(format).ok())
        return nullptr;
    ++shared_->created;
    shared_->lastFormat = format;
    return std::make_unique<NullSoundBuffer>(shared_, format, bytes);
}

std::vector<std::uint8_t> NullSoundDevice::Played()
{
    std::lock_guard<std::mutex> hold(shared_->lock);
    return shared_->played;
}

base::Status NullSoundDevice::WritePlayedWave(const std::string& path)
{
    WaveFormat f;
    std::vector<std::uint8_t> data;
    {
        std::lock_guard<std::mutex> hold(shared_->lock);
        f = shared_->lastFormat;
        data = shared_->played;
    }
    std::vector<std::uint8_t> out;
    auto put = [&out](std::uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i)
            out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    };
    auto tag = [&out](const char* t) { out.insert(out.end(), t, t + 4); };
    tag("RIFF");
    put(static_cast<std::uint32_t>(data.size() + 36), 4);
    tag("WAVE");
    tag("fmt ");
    put(16, 4);
    put(f.formatTag, 2);
    put(f.channels, 2);
    put(f.samplesPerSec, 4);
    put(f.avgBytesPerSec, 4);
    put(f.blockAlign, 2);
    put(f.bitsPerSample, 2);
    tag("data");
    put(static_cast<std::uint32_t>(data.size()), 4);
    out.insert(out.end(), data.begin(), data.end());
    std::FILE* file = std::fopen(path.c_str(), "wb");
    const bool ok = file && std::fwrite(out.data(), 1, out.size(), file) == out.size();
    if (file)
        std::fclose(file);
    if (!ok)
        return base::Error{base::ErrorCode::Io, base::StrCat("cannot write ", path)};
    return {};
}

std::vector<std::uint8_t> NullSoundDevice::TakeTimeline(std::uint64_t untilMs, WaveFormat& format)
{
    std::lock_guard<std::mutex> hold(shared_->lock);
    for (SoundBuffer* buffer : shared_->live)
        static_cast<NullSoundBuffer*>(buffer)->CatchUpLocked();
    if (!shared_->timelineFormat)
        return {};
    format = *shared_->timelineFormat;
    const std::uint64_t end = ByteAt(format, untilMs);
    GrowTimeline(*shared_, end);
    if (end <= shared_->timelineTaken)
        return {};
    const auto count = static_cast<std::ptrdiff_t>(end - shared_->timelineTaken);
    std::vector<std::uint8_t> out(shared_->timeline.begin(), shared_->timeline.begin() + count);
    shared_->timeline.erase(shared_->timeline.begin(), shared_->timeline.begin() + count);
    shared_->timelineTaken = end;
    return out;
}

int NullSoundDevice::BuffersCreated() const
{
    std::lock_guard<std::mutex> hold(shared_->lock);
    return shared_->created;
}

void NullSoundDevice::FailNextCreate()
{
    std::lock_guard<std::mutex> hold(shared_->lock);
    shared_->failNextCreate = true;
}

void NullSoundDevice::LoseBufferOnNextLock()
{
    std::lock_guard<std::mutex> hold(shared_->lock);
    shared_->loseNextLock = true;
}

} // namespace lumenar::platform
