#include "app/Commands.h"

#include "app/InputFiles.h"
#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"
#include "platform/ImageFile.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace lumenar::app {

namespace {

constexpr const char* kDecodeHelp =
    "usage: lumenar decode PHOTO -o OUT.{bmp,png,ppm} [--portable] [--exit-on-corrupt]\n"
    "\n"
    "Decodes one baseline JPEG photo with the player's decoder and writes its 32-bit picture:\n"
    "a .bmp is the decoder's own picture block (bottom-up BGRX); .png and .ppm are RGB, top row first.\n"
    "\n"
    "options:\n"
    "  -o OUT                the picture to write; the extension picks the format\n"
    "  --portable            use the portable inverse transform instead of the fast one\n"
    "                        (LUMENAR_PORTABLE_IDCT=1 does the same)\n"
    "  --exit-on-corrupt     end the process with status 1, as the player once did, when the photo\n"
    "                        is corrupt in one of the two ways it treated as fatal (otherwise the\n"
    "                        photo is refused like any other that cannot be decoded)\n"
    "\n"
    "Exit status: 0 when the picture was written, 2 when the photo cannot be read or decoded or the\n"
    "picture cannot be written, 1 when --exit-on-corrupt ended the process.\n";

bool EndsWith(const std::string& text, const char* suffix)
{
    const std::size_t n = std::strlen(suffix);
    return text.size() >= n && text.compare(text.size() - n, n, suffix) == 0;
}

} // namespace

int DecodeCommand(Args args)
{
    std::string input, output;
    codec::DecodeOptions options;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kDecodeHelp, stdout);
            return 0;
        }
        if (arg == "-o") {
            if (i + 1 >= args.size())
                return Fail("decode", "-o needs a file name");
            output = args[++i];
        } else if (arg == "--portable") {
            options.idct = codec::IdctPath::Portable;
        } else if (arg == "--exit-on-corrupt") {
            platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::EndProcess);
        } else if (arg == "--no-exit-on-corrupt") {
            // The default now; still accepted so that existing scripts keep working.
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail(arg, "unknown option for decode (try 'lumenar decode --help')");
        } else if (input.empty()) {
            input = arg;
        } else {
            return Fail(arg, "decode reads one photo at a time");
        }
    }
    if (input.empty())
        return Fail("decode", "no photo given (try 'lumenar decode --help')");
    if (output.empty())
        return Fail(input, "no output given (-o OUT.bmp, .png or .ppm)");
    if (!EndsWith(output, ".bmp") && !EndsWith(output, ".png") && !EndsWith(output, ".ppm"))
        return Fail(output, "unknown picture format (use .bmp, .png or .ppm)");

    auto bytes = ReadInputFile(input);
    if (!bytes.ok())
        return Fail(input, bytes.error().message);
    codec::Photo photo;
    codec::DecodeReport report;
    if (codec::DecodePhoto(photo, *bytes, options, &report) != 1) {
        if (report.fatalCorruption)
            platform::EndProcessIfAskedFor(report.refusal);
        return Fail(input, "not a photo the player can decode: " + report.refusal);
    }
    for (const std::string& notice : report.notices)
        std::fprintf(stderr, "lumenar: %s: %s\n", input.c_str(), notice.c_str());
    const codec::PhotoBitmap* bitmap = photo.Bitmap();
    if (bitmap->BitCount() == 0)
        return Fail(input, "no memory for the picture");

    if (!EndsWith(output, ".bmp")) {
        // The decoder's rows are exactly 4 × width bytes, bottom row first: the picture writer's layout.
        const auto pixels = bitmap->Pixels();
        const platform::BgrxPicture picture{photo.Width(), photo.Height(), {pixels.begin(), pixels.end()}};
        if (auto written = platform::WriteImageFile(output, picture); !written.ok())
            return Fail(output, WithoutPath(written.error().message, output));
        return 0;
    }
    // The picture block is a complete .bmp file as it stands.
    if (auto written = WriteOutputFile(output, bitmap->Block()); !written.ok())
        return Fail(output, written.error().message);
    return 0;
}

} // namespace lumenar::app
