#include "app/Commands.h"

#include "app/InputFiles.h"
#include "audio/NarrationDecoder.h"
#include "audio/NarrationPacker.h"
#include "base/StrCat.h"

#include <cstdio>
#include <cstring>
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
    "A narration decodes to at most 312 packets (149.76 s, the player's sound ring); packets past that\n"
    "and packets without frames are not decoded, and damage is reported on one warning line.\n"
    "\n"
    "Exit status: 0 on success (with or without a warning), 2 when the input cannot be read, is not\n"
    "narration (or frames) or cannot be packed, or the output cannot be written.\n";

// What a file that is not narration (or not raw frames) is, when it is something we know.
const char* KnownKind(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() >= 12 && std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
        std::memcmp(bytes.data() + 8, "WAVE", 4) == 0)
        return "a wave file";
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xD8)
        return "a JPEG photo";
    return nullptr;
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

    auto read = ReadInputFile(input);
    if (!read.ok())
        return Fail(input, read.error().message);
    const std::vector<std::uint8_t>& bytes = *read;
    const char* kind = KnownKind(bytes);

    if (pack) {
        if (kind != nullptr)
            return Fail(input, base::StrCat("is ", kind,
                                            ", not raw G.723.1 frames (ffmpeg -c:a g723_1 -f g723_1 "
                                            "makes them from a recording)"));
        auto packed = audio::PackFrames(bytes);
        if (!packed.ok())
            return Fail(input, packed.error().message);
        if (auto written = WriteOutputFile(output, *packed); !written.ok())
            return Fail(output, written.error().message);
        return 0;
    }

    if (!audio::SniffNarration(bytes)) {
        if (bytes.empty())
            return Fail(input, "is empty, not a compressed narration");
        if (kind != nullptr)
            return Fail(input, base::StrCat("is ", kind, ", not a compressed narration"));
        return Fail(input,
                    "not a compressed narration (its first packet is not whole: an 8-byte header, then "
                    "exactly the bytes its frames take, at most 384)");
    }
    audio::NarrationReport report;
    if (audio::DecodeNarration(bytes, output, &report) != 1)
        return Fail(output, "cannot write the wave file");
    if (report.Damaged())
        std::fprintf(stderr, "lumenar: %s: warning: %s\n", input.c_str(), report.Describe().c_str());
    return 0;
}

} // namespace lumenar::app
