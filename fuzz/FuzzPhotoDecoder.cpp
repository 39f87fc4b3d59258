// Decodes arbitrary bytes as a photo (both transforms, small chunks too) under the "fail this photo"
// policy: the decoder must never crash, hang, read out of bounds or use uninitialised memory.
#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"
#include "platform/MessageBox.h"

#include <cstdint>

namespace {

class SilentSink final : public lumenar::platform::MessageSink
{
public:
    int Show(lumenar::platform::Window*, unsigned, std::string_view, std::string_view) override { return 1; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace lumenar;
    static SilentSink sink;
    platform::SetMessageSink(&sink);
    platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::FailPhoto);
    if (size > (256u << 10))
        return 0;
    // The input's length picks the transform and the chunk size, so that the chunk-boundary rules are
    // fuzzed too while every input stays a plain photo stream.
    const codec::DecodeOptions options{.idct = (size & 1) != 0 ? codec::IdctPath::Portable : codec::IdctPath::Fast,
                                       .chunkCapacity = (size & 2) != 0 ? 16u + static_cast<std::uint32_t>(size & 0x70)
                                                                       : codec::kPhotoChunkCapacity,
                                       .maxPlaneBytes = 256u << 10,
                                       .maxPictureBytes = 1u << 20};
    codec::Photo photo;
    if (codec::DecodePhoto(photo, {data, size}, options) != 1)
        return 0;
    std::uint64_t sum = 0;
    for (std::uint8_t b : photo.Bitmap()->Block())
        sum += b;
    volatile std::uint64_t sink2 = sum;
    (void)sink2;
    return 0;
}
