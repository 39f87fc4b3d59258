// Decodes arbitrary bytes as a compressed narration chunk into a wave file: the decoder must never
// crash, hang or read out of bounds, and the file must hold a header plus whole packets.
#include "audio/NarrationDecoder.h"
#include "platform/MessageBox.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

namespace {
class QuietSink final : public lumenar::platform::MessageSink
{
public:
    int Show(lumenar::platform::Window*, unsigned, std::string_view, std::string_view) override { return 1; }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > (1u << 11))
        return 0;
    static QuietSink sink;
    lumenar::platform::SetMessageSink(&sink);
    static const std::string path =
        (std::filesystem::temp_directory_path() /
         ("lumenar-fuzz-narration-" + std::to_string(std::random_device()()) + ".wav"))
            .string();
    if (lumenar::audio::DecodeNarration({data, size}, path) != 1)
        __builtin_trap();
    std::FILE* f = std::fopen(path.c_str(), "rb");
    std::uint64_t sum = 0;
    long bytes = 0;
    for (int c; (c = std::fgetc(f)) != EOF; ++bytes)
        sum += static_cast<unsigned>(c);
    std::fclose(f);
    if ((bytes - 44) % 7680 != 0)
        __builtin_trap();
    volatile std::uint64_t keep = sum;
    (void)keep;
    return 0;
}
