#pragma once

#include "base/Result.h"

#include <cstdint>
#include <span>
#include <vector>

namespace lumenar::audio {

/// Packs a raw stream of G.723.1 frames, back to back as ffmpeg's "g723_1" muxer writes them (each
/// frame's size given by the two low bits of its first byte), into the narration packet container:
/// 16 frames a packet. 6.3 kbit/s frames (24 bytes) become kind 3, silence descriptions (4 bytes)
/// kind 2 and untransmitted frames (1 byte) kind 1. A final packet with fewer than 16 frames is filled
/// with empty frames, which repeat its last frame. Fails on a 5.3 kbit/s frame (the container's speech
/// kind holds only 24-byte frames), on a stream that ends inside a frame, and on an empty stream.
base::Result<std::vector<std::uint8_t>> PackFrames(std::span<const std::uint8_t> frames);

} // namespace lumenar::audio
