#include "tests/support/NarrationWriter.h"

#include <random>

namespace lumenar::testing {

namespace {

std::vector<std::uint8_t> RandomFrame(std::size_t size, unsigned type, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<std::uint8_t> frame(size);
    for (auto& b : frame)
        b = static_cast<std::uint8_t>(random());
    frame[0] = static_cast<std::uint8_t>((frame[0] & ~3u) | type);
    if (size >= 20) {
        // Bits 26-32 and 35-41 are the two open-loop lags; codes above 123 are forbidden.
        auto setBits = [&frame](int at, int count, unsigned value) {
            for (int i = 0; i < count; ++i) {
                const int bit = at + i;
                frame[static_cast<std::size_t>(bit >> 3)] = static_cast<std::uint8_t>(
                    (frame[static_cast<std::size_t>(bit >> 3)] & ~(1u << (bit & 7))) |
                    (((value >> i) & 1u) << (bit & 7)));
            }
        };
        setBits(26, 7, random() % 124);
        setBits(35, 7, random() % 124);
    }
    return frame;
}

} // namespace

std::vector<std::uint8_t> SpeechFrame63(std::uint32_t seed)
{
    return RandomFrame(24, 0, seed);
}

std::vector<std::uint8_t> SpeechFrame53(std::uint32_t seed)
{
    return RandomFrame(20, 1, seed);
}

std::vector<std::uint8_t> SilenceFrame(int gainIndex, std::uint32_t seed)
{
    auto frame = RandomFrame(4, 2, seed);
    frame[3] = static_cast<std::uint8_t>((frame[3] & 0x03) | (gainIndex << 2));
    return frame;
}

std::vector<std::uint8_t> Packet(std::initializer_list<unsigned> kinds,
                                 const std::vector<std::uint8_t>& payload, int payloadBytes)
{
    std::uint32_t frameTypes = 0;
    int i = 0;
    for (unsigned kind : kinds)
        frameTypes |= (kind & 3u) << (2 * i++);
    const auto length =
        static_cast<std::uint32_t>(payloadBytes < 0 ? static_cast<int>(payload.size()) : payloadBytes);
    std::vector<std::uint8_t> packet = {0,
                                        0,
                                        static_cast<std::uint8_t>(length),
                                        static_cast<std::uint8_t>(length >> 8),
                                        static_cast<std::uint8_t>(frameTypes),
                                        static_cast<std::uint8_t>(frameTypes >> 8),
                                        static_cast<std::uint8_t>(frameTypes >> 16),
                                        static_cast<std::uint8_t>(frameTypes >> 24)};
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

void Append(std::vector<std::uint8_t>& head, const std::vector<std::uint8_t>& tail)
{
    head.insert(head.end(), tail.begin(), tail.end());
}

} // namespace lumenar::testing
