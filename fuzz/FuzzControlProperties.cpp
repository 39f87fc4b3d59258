// Reads arbitrary bytes as the control's persisted property stream: never a crash or an over-read,
// and whatever loads must write back to a stream that loads to the same properties.
#include "control/ControlProperties.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > (1u << 16))
        return 0;
    auto loaded = lumenar::control::LoadFromStream({data, size});
    if (!loaded.ok())
        return 0;
    std::uint64_t sum = loaded->cx + loaded->cy + loaded->backColor + loaded->fillColor;
    for (char c : loaded->file)
        sum += static_cast<unsigned char>(c);
    volatile std::uint64_t sink = sum;
    (void)sink;
    auto again = lumenar::control::LoadFromStream(lumenar::control::SaveToStream(*loaded));
    if (!again.ok() || !(*again == *loaded))
        std::abort();
    return 0;
}
