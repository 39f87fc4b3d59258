#include "app/Commands.h"

#include "audio/NarrationDecoder.h"
#include "audio/NarrationPacker.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace lumenar::app {

namespace {

constexpr const char* kNarrationHelp =
    "usage: lumenar narration IN.ca -o OUT.wav\n"
    "       lumenar narration --pack FRAMES -o OUT.ca\n"
    "\n"
    "The first form decodes a compressed narration file (16-frame packets of G.723.1 speech frames)\n"
    "into an 8 kHz 16-bit mono wave file, as the player does before it plays a narration.\n"
    "\n"
    "The second form packs a raw stream of G.723.1 frames (as 'ffmpeg -c:a g723_1 -f g723_1' writes\n"
    "it, 6.3 kbit/s) into narration packets, 16 frames a packet, so that a film can carry narration\n"
    "made from any recording. A last packet with fewer frames repeats its last frame.\n"
    "\n"
    "Exit status: 0 on success, 2 when an input cannot be read or packed or the output not written.\n";

bool ReadFile(const std::string& path, std::vector<std::uint8_t>& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

} // namespace

int NarrationCommand(Args args)
{
    bool pack = false;
    std::string input;
    std::string output;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kNarrationHelp, stdout);
            return 0;
        }
        if (arg == "--pack") {
            pack = true;
        } else if (arg == "-o") {
            if (i + 1 >= args.size())
                return Fail("narration", "-o needs a file name");
            output = args[++i];
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail(arg, "unknown option for narration (try 'lumenar narration --help')");
        } else if (input.empty()) {
            input = arg;
        } else {
            return Fail(arg, "narration reads one file at a time");
        }
    }
    if (input.empty() || output.empty())
        return Fail("narration", "needs an input and '-o OUTPUT' (try 'lumenar narration --help')");

    std::vector<std::uint8_t> bytes;
    if (!ReadFile(input, bytes))
        return Fail(input, std::strerror(errno));

    if (pack) {
        auto packed = audio::PackFrames(bytes);
        if (!packed.ok())
            return Fail(input, packed.error().message);
        std::ofstream out(output, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(packed->data()),
                  static_cast<std::streamsize>(packed->size()));
        if (!out)
            return Fail(output, "cannot write the packed narration");
        return 0;
    }

    audio::NarrationReport report;
    const int result = audio::DecodeNarration(bytes, output, &report);
    if (report.Damaged())
        std::fprintf(stderr, "lumenar: %s: warning: %s\n", input.c_str(), report.Describe().c_str());
    if (result != 1)
        return Fail(output, "cannot write the wave file");
    return 0;
}

} // namespace lumenar::app
