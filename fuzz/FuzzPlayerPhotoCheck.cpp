// Checks arbitrary bytes as a photo for the player and moves their scan off the read edge: neither may
// crash, hang or read out of bounds, and a moved scan must leave no stuffed pair on a chunk's edge.
#include "codec/PlayerPhotoCheck.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace lumenar;
    if (size > (256u << 10))
        return 0;
    const codec::PlayerPhotoCheck check = codec::CheckPlayerPhoto({data, size});
    const std::vector<std::uint8_t> moved = codec::MoveScanOffChunkEdges({data, size});
    if (check.pairOnChunkEdge && check.reasons.empty() && codec::CheckPlayerPhoto(moved).pairOnChunkEdge)
        std::abort();
    return 0;
}
