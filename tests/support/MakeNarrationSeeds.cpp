// Writes the fuzz seed corpus for the narration decoder into the folder given as the argument.
#include "tests/support/NarrationWriter.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace lumenar::testing;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_narration_seeds FOLDER\n");
        return 2;
    }
    std::vector<std::vector<std::uint8_t>> seeds;
    std::vector<std::uint8_t> speech;
    for (std::uint32_t i = 0; i < 16; ++i)
        Append(speech, SpeechFrame63(i));
    seeds.push_back(Packet({3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, speech));
    auto mixed = SpeechFrame63(7);
    Append(mixed, SilenceFrame(20, 3));
    mixed.push_back(0x03);
    Append(mixed, SpeechFrame53(9));
    seeds.push_back(Packet({3, 2, 1, 0, 3}, mixed));
    auto two = Packet({3, 0, 0, 2}, [] {
        auto f = SpeechFrame63(1);
        Append(f, SilenceFrame(40, 1));
        return f;
    }());
    Append(two, Packet({1, 1, 2}, {0x03, 0x03, 0x12, 0x34, 0x56, 0x7a}));
    seeds.push_back(two);
    // Shapes of a hostile-input campaign: packets without frames, one-byte frames that expand 850-fold,
    // a payload past the work area, and a chunk cut inside its packet.
    seeds.push_back(std::vector<std::uint8_t>(64, 0));
    std::vector<std::uint8_t> tiny;
    for (int i = 0; i < 20; ++i)
        Append(tiny, Packet({1}, {0x03}));
    seeds.push_back(tiny);
    seeds.push_back(Packet({3, 3}, std::vector<std::uint8_t>(400, 0x55)));
    auto cut = Packet({3}, SpeechFrame63(5));
    cut.resize(cut.size() - 7);
    seeds.push_back(cut);
    // Wave headers the sound output must refuse or accept: the narration fuzzer reads every input as a
    // wave file too.
    struct WaveHeader
    {
        std::uint16_t tag, channels;
        std::uint32_t rate, byteRate;
        std::uint16_t blockAlign, bits;
        std::uint32_t formatBytes;
    };
    const WaveHeader waves[] = {
        {1, 1, 8000, 16000, 2, 16, 16},
        {1, 1, 1, 2, 2, 16, 16},
        {1, 1, 0xFFFFFFFF, 0xFFFFFFFE, 2, 16, 16},
        {1, 1, 8000, 0xFFFFFFFF, 2, 16, 16},
        {1, 2, 192000, 768000, 4, 16, 16},
        {3, 1, 8000, 32000, 4, 32, 16},
        {1, 1, 8000, 8000, 1, 8, 14},
    };
    for (const WaveHeader& w : waves) {
        std::vector<std::uint8_t> wave;
        auto put = [&wave](std::uint32_t v, int bytes) {
            for (int i = 0; i < bytes; ++i)
                wave.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        };
        auto tag = [&wave](const char* t) {
            for (int i = 0; i < 4; ++i)
                wave.push_back(static_cast<std::uint8_t>(t[i]));
        };
        tag("RIFF");
        put(4 + 8 + w.formatBytes + 8 + 8, 4);
        tag("WAVE");
        tag("fmt ");
        put(w.formatBytes, 4);
        put(w.tag, 2);
        put(w.channels, 2);
        put(w.rate, 4);
        put(w.byteRate, 4);
        put(w.blockAlign, 2);
        if (w.formatBytes >= 16)
            put(w.bits, 2);
        tag("data");
        put(8, 4);
        put(0x01234567, 4);
        put(0x89abcdef, 4);
        seeds.push_back(wave);
    }
    for (std::size_t i = 0; i < seeds.size(); ++i) {
        const std::string path = std::string(argv[1]) + "/seed" + std::to_string(i) + ".ca";
        if (!WriteFile(path, seeds[i]))
            return 1;
    }
    return 0;
}
