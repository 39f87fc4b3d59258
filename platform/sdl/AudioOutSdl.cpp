#include "platform/AudioOut.h"

#include <SDL.h>
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::platform {

namespace {

// One ring buffer played by an SDL audio device of its own. SDL's audio thread reads the ring in its
// callback; every other access holds the device lock, as Lock holds it until Unlock.
class SdlSoundBuffer final : public SoundBuffer
{
public:
    SdlSoundBuffer(std::uint32_t bytes, std::uint16_t blockAlign)
        : data_(bytes, 0), blockAlign_(std::max<std::uint16_t>(blockAlign, 1))
    {
    }
    ~SdlSoundBuffer() override
    {
        if (device_ != 0)
            SDL_CloseAudioDevice(device_);
    }

    bool Open(const WaveFormat& format)
    {
        SDL_AudioSpec want{};
        want.freq = static_cast<int>(format.samplesPerSec);
        want.format = format.bitsPerSample == 8 ? AUDIO_U8 : AUDIO_S16LSB;
        want.channels = static_cast<Uint8>(format.channels);
        want.samples = PeriodFrames(format.samplesPerSec);
        want.callback = &SdlSoundBuffer::Feed;
        want.userdata = this;
        SDL_AudioSpec have{};
        // No changes allowed: the ring holds the file's own format and is played as it stands.
        device_ = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
        return device_ != 0;
    }

    std::uint32_t Size() const override { return static_cast<std::uint32_t>(data_.size()); }

    LockResult Lock(std::uint32_t offset, std::uint32_t bytes, LockedRegions& regions) override
    {
        if (offset >= data_.size() || bytes == 0 || bytes > data_.size())
            return LockResult::Failed;
        SDL_LockAudioDevice(device_);
        const std::uint32_t first = std::min<std::uint32_t>(bytes, Size() - offset);
        regions = {data_.data() + offset, first, first < bytes ? data_.data() : nullptr, bytes - first};
        return LockResult::Ok;
    }

    void Unlock(const LockedRegions&) override { SDL_UnlockAudioDevice(device_); }

    bool Restore() override { return true; } // SDL never takes the memory away.

    bool PlayLooping() override
    {
        SDL_LockAudioDevice(device_);
        playing_ = true;
        SDL_UnlockAudioDevice(device_);
        SDL_PauseAudioDevice(device_, 0);
        return true;
    }

    void Stop() override
    {
        SDL_PauseAudioDevice(device_, 1);
        SDL_LockAudioDevice(device_);
        playing_ = false;
        SDL_UnlockAudioDevice(device_);
    }

    void SetPosition(std::uint32_t offset) override
    {
        SDL_LockAudioDevice(device_);
        cursor_ = std::min<std::uint32_t>(offset, Size() - 1);
        cursor_ -= cursor_ % blockAlign_;
        SDL_UnlockAudioDevice(device_);
    }

    std::optional<std::uint32_t> PlayCursor() override
    {
        SDL_LockAudioDevice(device_);
        const std::uint32_t cursor = cursor_;
        SDL_UnlockAudioDevice(device_);
        return cursor;
    }

    std::optional<std::uint32_t> Status() override
    {
        SDL_LockAudioDevice(device_);
        const bool playing = playing_;
        SDL_UnlockAudioDevice(device_);
        return playing ? kStatusPlaying | kStatusLooping : 0u;
    }

private:
    // The largest power of two of sample frames that plays within kMaxPeriodMs. Closing the device
    // waits for its thread to finish the current period, so the period bounds how long a stop waits.
    static Uint16 PeriodFrames(std::uint32_t samplesPerSec)
    {
        const std::uint64_t limit = std::uint64_t{samplesPerSec} * kMaxPeriodMs / 1000;
        Uint16 frames = 64;
        while (frames < 4096 && frames * 2u <= limit)
            frames = static_cast<Uint16>(frames * 2);
        return frames;
    }

    // SDL's audio thread, with the device lock held.
    static void SDLCALL Feed(void* user, Uint8* stream, int length)
    {
        auto* self = static_cast<SdlSoundBuffer*>(user);
        auto remaining = static_cast<std::size_t>(length);
        if (!self->playing_) {
            std::memset(stream, 0, remaining);
            return;
        }
        while (remaining > 0) {
            const std::size_t run = std::min<std::size_t>(remaining, self->data_.size() - self->cursor_);
            std::memcpy(stream, self->data_.data() + self->cursor_, run);
            stream += run;
            remaining -= run;
            self->cursor_ = static_cast<std::uint32_t>((self->cursor_ + run) % self->data_.size());
        }
    }

    std::vector<std::uint8_t> data_;
    std::uint16_t blockAlign_;
    SDL_AudioDeviceID device_ = 0;
    std::uint32_t cursor_ = 0; // Guarded by the device lock.
    bool playing_ = false;     // Guarded by the device lock.
};

class SdlSoundDevice final : public SoundDevice
{
public:
    ~SdlSoundDevice() override { SDL_QuitSubSystem(SDL_INIT_AUDIO); }

    std::unique_ptr<SoundBuffer> CreateBuffer(const WaveFormat& format, std::uint32_t bytes) override
    {
        if (bytes == 0 || !CheckPlayableFormat(format).ok())
            return nullptr;
        auto buffer = std::make_unique<SdlSoundBuffer>(bytes, format.blockAlign);
        if (!buffer->Open(format))
            return nullptr;
        return buffer;
    }
};

} // namespace

namespace {

// Whether anything could play sound here: a sound server's socket or a sound card's playback device.
// Without either, SDL's real drivers only fill stderr with the sound library's complaints.
bool SoundOutputPresent()
{
    if (std::getenv("PULSE_SERVER") != nullptr)
        return true;
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr) {
        for (const char* socket : {"/pulse/native", "/pipewire-0"}) {
            if (access((std::string(runtime) + socket).c_str(), F_OK) == 0)
                return true;
        }
    }
    DIR* cards = opendir("/dev/snd");
    if (cards == nullptr)
        return false;
    bool found = false;
    while (dirent* entry = readdir(cards)) {
        const std::string_view name = entry->d_name;
        if (name.starts_with("pcmC") && name.ends_with("p"))
            found = true;
    }
    closedir(cards);
    return found;
}

} // namespace

std::unique_ptr<SoundDevice> OpenSdlSoundDevice()
{
    // With no sound card the dummy driver takes the narration: it plays (silently) at the real pace,
    // so the player behaves as it would with sound.
    if (std::getenv("SDL_AUDIODRIVER") == nullptr && !SoundOutputPresent())
        SDL_SetHint(SDL_HINT_AUDIODRIVER, "dummy");
    if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0) {
        SDL_SetHint(SDL_HINT_AUDIODRIVER, "dummy");
        if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0)
            return nullptr;
    }
    if (SDL_GetNumAudioDevices(0) == 0 && SDL_GetCurrentAudioDriver() == nullptr) {
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
        return nullptr;
    }
    return std::make_unique<SdlSoundDevice>();
}

} // namespace lumenar::platform
