#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace lumenar::testing {

/// A 24-byte 6.3 kbit/s speech frame of pseudo-random bits (seeded), with frame type 0 and in-range
/// pitch lags, so that it exercises every part of the decoder.
std::vector<std::uint8_t> SpeechFrame63(std::uint32_t seed);

/// A 20-byte 5.3 kbit/s speech frame of pseudo-random bits (seeded), frame type 1, in-range lags.
std::vector<std::uint8_t> SpeechFrame53(std::uint32_t seed);

/// A 4-byte silence description with the given 6-bit gain index and LSP band indices from `seed`.
std::vector<std::uint8_t> SilenceFrame(int gainIndex, std::uint32_t seed);

/// One packet: an 8-byte header (payload length, frame kinds 0-3 for frames 0..15, missing kinds 0)
/// and `payload`. `payloadBytes` overrides the declared length when not negative.
std::vector<std::uint8_t> Packet(std::initializer_list<unsigned> kinds,
                                 const std::vector<std::uint8_t>& payload, int payloadBytes = -1);

/// Appends `tail` to `head`.
void Append(std::vector<std::uint8_t>& head, const std::vector<std::uint8_t>& tail);

} // namespace lumenar::testing
