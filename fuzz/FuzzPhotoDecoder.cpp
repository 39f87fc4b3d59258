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
#include <cstring>

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
    codec::DecodeOptions registerOptions = options;
    registerOptions.bitReader = codec::BitReader::Register;
    registerOptions.pairBlocks = false;
    auto reference = codec::PhotoDecoder::Create({data, size}, registerOptions);
    const bool referenceOk = reference.ok() && (*reference)->ParseMarkers().ok();

    // The photo's own decoder is the fast one; it is parsed again only when the photo was refused, to
    // tell a failed parse from one with too few components.
    codec::Photo photo;
    const bool decoded = codec::DecodePhoto(photo, {data, size}, options) == 1;
    const codec::PhotoDecoder* fast = photo.Decoder();
    std::unique_ptr<codec::PhotoDecoder> parsedAgain;
    if (!decoded) {
        if (auto again = codec::PhotoDecoder::Create({data, size}, options);
            again.ok() && (*again)->ParseMarkers().ok()) {
            parsedAgain = std::move(again).value();
            fast = parsedAgain.get();
        }
    }
    if ((fast != nullptr) != referenceOk)
        std::abort();
    if (fast != nullptr) {
        if (fast->ComponentCount() != (*reference)->ComponentCount())
            std::abort();
        for (int c = 0; c < fast->ComponentCount(); ++c) {
            const auto a = fast->Component(c).Plane();
            const auto b = (*reference)->Component(c).Plane();
            if (a.size() != b.size() || (!a.empty() && std::memcmp(a.data(), b.data(), a.size()) != 0))
                std::abort();
        }
    }
    if (!decoded)
        return 0;
    // Word by word: a per-byte loop would cost more than the conversion under the fuzzer's hooks.
    const auto block = photo.Bitmap()->Block();
    std::uint64_t sum = 0;
    for (std::size_t at = 0; at + 8 <= block.size(); at += 8) {
        std::uint64_t word;
        std::memcpy(&word, block.data() + at, 8);
        sum += word;
    }
    for (std::size_t at = block.size() & ~std::size_t{7}; at < block.size(); ++at)
        sum += block[at];
    volatile std::uint64_t keep = sum;
    (void)keep;
    return 0;
}
