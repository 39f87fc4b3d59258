#include "platform/AudioOut.h"

#include "base/StrCat.h"

namespace lumenar::platform {

base::Status CheckPlayableFormat(const WaveFormat& f)
{
    using base::StrCat;
    auto refuse = [](std::string what) {
        return base::Error{base::ErrorCode::Unsupported,
                           StrCat(what, " (the sound output plays PCM at ", kMinSampleRate, "-",
                                  kMaxSampleRate, " Hz, 1 or 2 channels, 8 or 16 bits)")};
    };
    if (f.formatTag != 1)
        return refuse(StrCat("wave format tag ", f.formatTag, " is not PCM"));
    if (f.channels < 1 || f.channels > 2)
        return refuse(StrCat(f.channels, " channels"));
    if (f.samplesPerSec < kMinSampleRate || f.samplesPerSec > kMaxSampleRate)
        return refuse(StrCat("sample rate ", f.samplesPerSec, " Hz"));
    if (f.bitsPerSample != 8 && f.bitsPerSample != 16)
        return refuse(StrCat(f.bitsPerSample, " bits per sample"));
    const std::uint32_t blockAlign = f.channels * f.bitsPerSample / 8u;
    if (f.blockAlign != blockAlign)
        return refuse(StrCat("block alignment ", f.blockAlign, " where ", f.channels, " channels of ",
                             f.bitsPerSample, " bits take ", blockAlign));
    if (f.avgBytesPerSec != f.samplesPerSec * blockAlign)
        return refuse(StrCat("byte rate ", f.avgBytesPerSec, " where ", f.samplesPerSec, " Hz take ",
                             f.samplesPerSec * blockAlign));
    return {};
}

} // namespace lumenar::platform
