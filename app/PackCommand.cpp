#include "app/Commands.h"

#include "app/FilmManifest.h"
#include "app/InputFiles.h"
#include "app/PackPhotosOptions.h"
#include "app/PhotoFolder.h"
#include "base/StrCat.h"
#include "film/FilmStreamWriter.h"

#include <cstdio>
#include <filesystem>
#include <string>

namespace lumenar::app {

namespace {

constexpr const char* kPackHelp =
    "usage: lumenar pack MANIFEST -o OUT.film\n"
    "       lumenar pack --photos DIR -o OUT.film [--seconds N] [--effect N|NAME] [--effect-ms N]\n"
    "                    [--captions names]\n"
    "\n"
    "Packs the photos, masks, narration and music that MANIFEST names into one film stream, as the\n"
    "player downloads it. MANIFEST is text, one setting per line ('#' starts a comment, values with\n"
    "spaces in double quotes); file names are relative to the manifest's folder:\n"
    "\n"
    "  music FILE              background music (a .cda name is a disc track and carries no bytes)\n"
    "  advance automatic|manual\n"
    "  loop N\n"
    "  codepage N              the code page captions are written in (default 1252; 1250-1258, 932,\n"
    "                          936, 949, 950): the manifest is UTF-8, and a character the page cannot\n"
    "                          hold is an error\n"
    "  photo FILE              starts an item (a JPEG, PNG or WebP photo)\n"
    "    mask FILE             its mask picture\n"
    "    sound FILE            narration: .ca (compressed) or .wav\n"
    "    effect N|NAME         picture transition by row number or name (see 'lumenar effects'),\n"
    "                          effect-ms N its length (default 1000 when an effect is given)\n"
    "    seconds N             time on screen (default 5)\n"
    "    size W H              picture size (default: the photo's own), rect L T R B the part shown\n"
    "    caption text=\"...\" [effect=N|NAME x=N y=N height=N colour=0xBBGGRR|#RRGGBB face=NAME align=0|1|2\n"
    "            shadow=0|1 spacing=N weight=N italic=0|1]\n"
    "                          positions and height in pixels of an 800-pixel-wide frame; a negative\n"
    "                          height is the character height, a positive one the cell height, as\n"
    "                          for 'lumenar caption --height'\n"
    "\n"
    "The files keep their names in the film, prefixed with their byte counts (\"5120_song.wav\").\n"
    "\n"
    "Photos and masks are made fit for the player: a baseline JPEG that the player shows as it is is\n"
    "carried byte for byte; any other (progressive, greyscale, CMYK, halved chroma at a width the\n"
    "player shears, turned by its EXIF orientation, larger than 4096 pixels a side, PNG, WebP) is\n"
    "decoded, turned upright, scaled down to 4096 pixels on its long side if larger, and encoded anew\n"
    "as a baseline 4:4:4 JPEG (a PNG's or WebP's transparency over black, its name ending in .jpg).\n"
    "One line on stdout names each photo changed and why.\n"
    "\n"
    "--photos DIR packs every photo of a folder (.jpg, .jpeg, .png, .webp) in natural name order\n"
    "(IMG_2 before IMG_10) as an automatic film:\n"
    "  --seconds N             time on screen of each photo (default 5)\n"
    "  --effect N|NAME         the transition into each photo, a row of 'lumenar effects' by number\n"
    "                          or name, 'random' among them (default 41, a cross-fade)\n"
    "  --effect-ms N           the length of each transition (default 1000)\n"
    "  --captions names        show each photo's file name, without its extension, as its caption\n"
    "\n"
    "Exit status: 0 when the film stream was written, 2 when the manifest or a file it names cannot be\n"
    "read or used, or the output cannot be written.\n";

} // namespace

int PackCommand(Args args)
{
    std::string manifest;
    std::string output;
    PackPhotosOptions photos;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kPackHelp, stdout);
            return 0;
        }
        if (auto taken = TakePackPhotosOption(args, i, photos); taken != OptionTaken::No) {
            if (taken == OptionTaken::Bad)
                return Fail(photos.badInput, photos.badMessage);
        } else if (arg == "-o") {
            if (i + 1 >= args.size())
                return Fail("pack", "-o needs a file name");
            output = args[++i];
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail(arg, "unknown option for pack (try 'lumenar pack --help')");
        } else if (manifest.empty()) {
            manifest = arg;
        } else {
            return Fail(arg, "pack reads one manifest");
        }
    }
    if (!photos.folder.empty()) {
        if (!manifest.empty())
            return Fail(manifest, "pack takes a manifest or --photos DIR, not both");
        if (output.empty())
            return Fail("pack", "needs -o OUT.film (try 'lumenar pack --help')");
        auto stream = PackPhotoFolder(photos.folder, photos.film, stdout);
        if (!stream.ok())
            return Fail(photos.folder, stream.error().message);
        if (auto written = WriteOutputFile(output, *stream); !written.ok())
            return Fail(output, written.error().message);
        return 0;
    }
    if (photos.given)
        return Fail("pack", "--seconds, --effect, --effect-ms and --captions go with --photos DIR");
    if (manifest.empty() || output.empty())
        return Fail("pack", "needs MANIFEST and -o OUT.film (try 'lumenar pack --help')");

    auto text = ReadInputFile(manifest);
    if (!text.ok())
        return Fail(manifest, text.error().message);
    const std::filesystem::path folder = std::filesystem::path(manifest).parent_path();
    auto film = ReadFilmManifest(
        std::string_view(reinterpret_cast<const char*>(text->data()), text->size()),
        [&folder](const std::string& name) -> base::Result<std::vector<std::uint8_t>> {
            auto bytes = ReadInputFile((folder / name).string());
            if (!bytes.ok())
                return base::Error{bytes.error().code, base::StrCat(name, ": ", bytes.error().message)};
            return bytes;
        },
        NormalisingFilter(stdout));
    if (!film.ok())
        return Fail(manifest, film.error().message);
    for (const std::string& warning : film->warnings)
        std::fprintf(stderr, "lumenar: %s: warning: %s\n", manifest.c_str(), warning.c_str());
    auto stream = film::WriteFilmStream(film->film, film->media, film->music);
    if (!stream.ok())
        return Fail(manifest, stream.error().message);
    if (auto written = WriteOutputFile(output, *stream); !written.ok())
        return Fail(output, written.error().message);
    return 0;
}

} // namespace lumenar::app
