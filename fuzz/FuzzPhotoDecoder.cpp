// Decodes arbitrary bytes as a photo (both transforms, small chunks too) under the "fail this photo"
// policy: the decoder must never crash, hang, read out of bounds or use uninitialised memory, and the
// fast bit reader with paired transforms must leave exactly the planes of the 32-bit register storing
// one block at a time.
#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"
#include "platform/MessageBox.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

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
    const codec::DecodeOptions options{
        .idct = (size & 1) != 0 ? codec::IdctPath::Portable : codec::IdctPath::Fast,
        .chunkCapacity =
            (size & 2) != 0 ? 16u + static_cast<std::uint32_t>(size & 0x70) : codec::kPhotoChunkCapacity,
        .maxPlaneBytes = 256u << 10,
        .maxPictureBytes = 1u << 20};
    {
        codec::DecodeOptions registerOptions = options;
        registerOptions.bitReader = codec::BitReader::Register;
        registerOptions.pairBlocks = false;
        auto fast = codec::PhotoDecoder::Create({data, size}, options);
        auto reference = codec::PhotoDecoder::Create({data, size}, registerOptions);
        if (fast.ok() && reference.ok()) {
            const bool fastOk = (*fast)->ParseMarkers().ok();
            const bool referenceOk = (*reference)->ParseMarkers().ok();
            if (fastOk != referenceOk)
                std::abort();
            if (fastOk) {
                if ((*fast)->ComponentCount() != (*reference)->ComponentCount())
                    std::abort();
                for (int c = 0; c < (*fast)->ComponentCount(); ++c) {
                    const auto a = (*fast)->Component(c).Plane();
                    const auto b = (*reference)->Component(c).Plane();
                    if (!std::equal(a.begin(), a.end(), b.begin(), b.end()))
                        std::abort();
                }
            }
        }
    }
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
