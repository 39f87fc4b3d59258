// Decodes arbitrary bytes as a compressed narration chunk, and reads them as a wave file's header as
// the sound output would: neither may crash, hang or read out of bounds, every PCM byte is touched, and
// the narration never decodes past its length limit.
#include "audio/NarrationDecoder.h"
#include "audio/WaveFile.h"
#include "platform/AudioOut.h"

#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace lumenar;
    // A few packets reach every path of the decoder; longer inputs only repeat them, slower.
    if (size > 512)
        return 0;
    const std::span<const std::uint8_t> bytes(data, size);
    if (auto wave = audio::FindWaveChunks(bytes); wave.ok()) {
        volatile bool playable = platform::CheckPlayableFormat(wave->format).ok();
        (void)playable;
    }
    volatile bool sniffed = audio::SniffNarration(bytes);
    (void)sniffed;
    // In memory: the decoder is what is fuzzed; writing the wave file has its own tests.
    static audio::NarrationDecoder decoder;
    std::uint64_t sum = 0;
    std::size_t pcmBytes = 0;
    const audio::NarrationReport report = decoder.DecodeChunk(bytes, [&](std::span<const std::uint8_t> pcm) {
        // Word by word: a per-byte loop would cost more than the decoding under the fuzzer's hooks.
        for (std::size_t at = 0; at + 8 <= pcm.size(); at += 8) {
            std::uint64_t word;
            std::memcpy(&word, pcm.data() + at, 8);
            sum += word;
        }
        pcmBytes += pcm.size();
    });
    if (pcmBytes != report.packets * audio::kPacketPcmBytes || report.packets > audio::kMaxNarrationPackets)
        __builtin_trap();
    volatile std::uint64_t keep = sum;
    (void)keep;
    return 0;
}
