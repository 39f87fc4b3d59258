#include "audio/WaveFile.h"

#include "base/ByteReader.h"
#include "base/StrCat.h"
#include "platform/DebugTrace.h"

#include <cstring>

namespace lumenar::audio {

base::Result<WaveChunks> FindWaveChunks(std::span<const std::uint8_t> file)
{
    using base::Error;
    using base::ErrorCode;
    base::ByteReader reader(file);
    const auto riff = reader.ReadBytes(4);
    const auto riffLength = reader.ReadU32LE();
    const auto wave = reader.ReadBytes(4);
    if (!riff.ok() || !riffLength.ok() || !wave.ok() || std::memcmp(riff->data(), "RIFF", 4) != 0 ||
        std::memcmp(wave->data(), "WAVE", 4) != 0)
        return Error{ErrorCode::BadData, "not a RIFF/WAVE file"};

    const std::uint64_t end = static_cast<std::uint64_t>(*riffLength) + 8 - 4;
    WaveChunks out;
    bool haveFormat = false;
    bool haveData = false;
    std::uint64_t at = 12;
    while (!(haveFormat && haveData)) {
        if (at >= end)
            return Error{ErrorCode::BadData, base::StrCat("no ", haveFormat ? "\"data\"" : "\"fmt \"",
                                                          " chunk before the RIFF length ends at ", end)};
        if (at + 8 > file.size())
            return Error{ErrorCode::Truncated, base::StrCat("chunk header at offset ", at,
                                                            " is past the file's ", file.size(), " bytes")};
        base::ByteReader chunk(file.subspan(static_cast<std::size_t>(at)));
        const auto id = chunk.ReadBytes(4).value();
        const std::uint32_t length = chunk.ReadU32LE().value();
        const std::size_t available = chunk.Remaining();
        if (!haveFormat && std::memcmp(id.data(), "fmt ", 4) == 0) {
            if (length < 14)
                return Error{ErrorCode::BadData,
                             base::StrCat("\"fmt \" chunk of ", length, " bytes (14 needed)")};
            if (available < 14)
                return Error{ErrorCode::Truncated, "\"fmt \" chunk is cut short"};
            auto& f = out.format;
            f.formatTag = chunk.ReadU16LE().value();
            f.channels = chunk.ReadU16LE().value();
            f.samplesPerSec = chunk.ReadU32LE().value();
            f.avgBytesPerSec = chunk.ReadU32LE().value();
            f.blockAlign = chunk.ReadU16LE().value();
            if (length >= 16 && available >= 16)
                f.bitsPerSample = chunk.ReadU16LE().value();
            else // A 14-byte format block has no sample size: its block holds one sample per channel.
                f.bitsPerSample =
                    f.channels != 0 ? static_cast<std::uint16_t>(f.blockAlign * 8 / f.channels) : 0;
            haveFormat = true;
        } else if (!haveData && std::memcmp(id.data(), "data", 4) == 0) {
            std::size_t bytes = length;
            if (bytes > available) {
                platform::DebugTrace(
                    base::StrCat("wave data chunk claims ", length, " bytes, ", available, " are there\n"));
                bytes = available;
            }
            out.data = file.subspan(static_cast<std::size_t>(at) + 8, bytes);
            haveData = true;
        }
        at += 8 + static_cast<std::uint64_t>(length) + (length & 1);
    }
    return out;
}

} // namespace lumenar::audio
