#include "audio/NarrationPacker.h"

#include "audio/NarrationDecoder.h"
#include "base/StrCat.h"

namespace lumenar::audio {

base::Result<std::vector<std::uint8_t>> PackFrames(std::span<const std::uint8_t> frames)
{
    using base::Error;
    using base::ErrorCode;
    if (frames.empty())
        return Error{ErrorCode::BadData, "no frames to pack"};
    std::vector<std::uint8_t> out;
    std::size_t position = 0;
    std::size_t frameNumber = 0;
    while (position < frames.size()) {
        const std::size_t packetStart = out.size();
        out.resize(out.size() + kPacketHeaderBytes, 0);
        std::uint32_t frameTypes = 0;
        std::size_t payloadBytes = 0;
        for (int i = 0; i < kPacketFrames && position < frames.size(); ++i, ++frameNumber) {
            static constexpr std::size_t kBytes[4] = {24, 20, 4, 1};
            static constexpr std::uint32_t kKind[4] = {3, 0, 2, 1};
            const unsigned type = frames[position] & 3;
            if (type == 1)
                return Error{ErrorCode::Unsupported,
                             base::StrCat("frame ", frameNumber, " at offset ", position,
                                          " is a 5.3 kbit/s frame, which narration packets cannot carry")};
            if (frames.size() - position < kBytes[type])
                return Error{ErrorCode::Truncated,
                             base::StrCat("frame ", frameNumber, " at offset ", position, " needs ",
                                          kBytes[type], " bytes, only ", frames.size() - position, " left")};
            out.insert(out.end(), frames.begin() + static_cast<std::ptrdiff_t>(position),
                       frames.begin() + static_cast<std::ptrdiff_t>(position + kBytes[type]));
            frameTypes |= kKind[type] << (2 * i);
            payloadBytes += kBytes[type];
            position += kBytes[type];
        }
        // Bytes 0-1 are not read by the decoder and stay zero.
        out[packetStart + 2] = static_cast<std::uint8_t>(payloadBytes);
        out[packetStart + 3] = static_cast<std::uint8_t>(payloadBytes >> 8);
        for (int b = 0; b < 4; ++b)
            out[packetStart + 4 + static_cast<std::size_t>(b)] =
                static_cast<std::uint8_t>(frameTypes >> (8 * b));
    }
    return out;
}

} // namespace lumenar::audio
