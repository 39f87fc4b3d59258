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
    for (std::size_t i = 0; i < seeds.size(); ++i) {
        const std::string path = std::string(argv[1]) + "/seed" + std::to_string(i) + ".ca";
        if (!WriteFile(path, seeds[i]))
            return 1;
    }
    return 0;
}
