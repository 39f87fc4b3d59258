#pragma once

#include "base/Result.h"
#include "platform/AudioOut.h"

#include <cstdint>
#include <span>

namespace lumenar::audio {

/// The two chunks of a loaded wave file that streaming needs. `data` views the file's bytes.
struct WaveChunks
{
    platform::WaveFormat format;
    std::span<const std::uint8_t> data;
};

/// Finds the first "fmt " chunk (at least 14 bytes) and the first "data" chunk of a RIFF/WAVE file,
/// in either order. A 14-byte format block, which has no sample size, gets the one its block alignment
/// and channels imply. Chunks start at byte 12 and are padded to even lengths; the walk stops as soon
/// as both are found and fails when the next chunk would start at or beyond the RIFF length + 4, or
/// past the end of the bytes. A "data" chunk that claims more bytes than the file has is cut to what
/// is there.
base::Result<WaveChunks> FindWaveChunks(std::span<const std::uint8_t> file);

} // namespace lumenar::audio
