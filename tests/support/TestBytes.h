#pragma once

#include "platform/AudioOut.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumenar::testing {

/// `size` bytes from `seed` that do not repeat every 256 bytes, so a copy at the wrong offset differs.
inline std::vector<std::uint8_t> Pattern(std::size_t size, std::uint8_t seed = 0)
{
    std::vector<std::uint8_t> out(size);
    for (std::size_t i = 0; i < size; ++i)
        out[i] = static_cast<std::uint8_t>(seed + i * 7 + i / 251);
    return out;
}

/// How WaveFile orders its chunks.
enum class WaveLayout
{
    Canonical,      ///< "fmt " then "data": the 44-byte header.
    ListFirst,      ///< An odd-sized "LIST" chunk a reader must step over, then "fmt " and "data".
    ListDataFormat, ///< The "LIST" chunk, then "data" before "fmt ".
};

/// A wave file holding `data` in `format` (by default 8 kHz, 16-bit, mono), padded to an even size.
inline std::vector<std::uint8_t> WaveFile(const std::vector<std::uint8_t>& data,
                                          const platform::WaveFormat& format = {},
                                          WaveLayout layout = WaveLayout::Canonical)
{
    std::vector<std::uint8_t> out;
    const auto put = [&out](std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    };
    // Byte by byte: g++ 12 at -O2 takes a ranged insert into a fresh vector for an overflow.
    const auto tag = [&out](const char* text) {
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<std::uint8_t>(text[i]));
    };
    const auto formatChunk = [&] {
        tag("fmt ");
        put(16, 4);
        put(format.formatTag, 2);
        put(format.channels, 2);
        put(format.samplesPerSec, 4);
        put(format.avgBytesPerSec, 4);
        put(format.blockAlign, 2);
        put(format.bitsPerSample, 2);
    };
    const auto dataChunk = [&] {
        tag("data");
        put(static_cast<std::uint32_t>(data.size()), 4);
        for (std::uint8_t byte : data)
            out.push_back(byte);
        if (data.size() % 2 != 0)
            out.push_back(0);
    };
    tag("RIFF");
    put(0, 4); // The RIFF length, filled in below.
    tag("WAVE");
    if (layout != WaveLayout::Canonical) {
        tag("LIST");
        put(3, 4);
        put(0x636261, 4); // "abc" and its pad byte.
    }
    if (layout == WaveLayout::ListDataFormat) {
        dataChunk();
        formatChunk();
    } else {
        formatChunk();
        dataChunk();
    }
    const auto riff = static_cast<std::uint32_t>(out.size() - 8);
    for (int i = 0; i < 4; ++i)
        out[4 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(riff >> (8 * i));
    return out;
}

} // namespace lumenar::testing
