#include "app/Commands.h"

#include "app/FilmJson.h"
#include "app/InputFiles.h"
#include "film/Film.h"
#include "film/FilmReader.h"
#include "film/FilmReceiver.h"
#include "platform/CodePage.h"
#include "platform/CompoundFile.h"

#include <cstdio>
#include <iostream>
#include <string>

namespace lumenar::app {

namespace {

constexpr const char* kInfoHelp =
    "usage: lumenar info [--codepage N] FILM.flm|FILM.film\n"
    "\n"
    "Reads a film file (or the film file inside a film stream) and prints its settings, items and captions "
    "as one JSON object:\n"
    "  {\"result\":1|0,\"loop\":N,\"advanceMode\":N,\"music\":\"...\",\"itemCount\":N,\"items\":[...]}\n"
    "result is 1 when the whole file was read and 0 when reading stopped early (the items read\n"
    "before that are listed). Text is converted to UTF-8 from the film's code page.\n"
    "\n"
    "options:\n"
    "  --codepage N   the code page the film was written in (default 1252; 932, 936, 949, 950\n"
    "                 for Japanese, Simplified Chinese, Korean and Traditional Chinese films)\n"
    "\n"
    "Exit status: 0 when the file was read (whatever result says), 2 when it cannot be opened or is not\n"
    "a film file or stream.\n";

} // namespace

int InfoCommand(Args args)
{
    int codePage = platform::kDefaultCodePage;
    std::string path;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kInfoHelp, stdout);
            return 0;
        }
        if (arg == "--codepage") {
            if (i + 1 >= args.size())
                return Fail("info", "--codepage needs a number");
            const std::string& value = args[++i];
            char* end = nullptr;
            const long number = std::strtol(value.c_str(), &end, 10);
            if (end == value.c_str() || *end != '\0' ||
                !platform::IsSupportedCodePage(static_cast<int>(number)))
                return Fail(value, "not a code page we can convert (try 1252, 932, 936, 949 or 950)");
            codePage = static_cast<int>(number);
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail(arg, "unknown option for info (try 'lumenar info --help')");
        } else if (path.empty()) {
            path = arg;
        } else {
            return Fail(arg, "info reads one film at a time");
        }
    }
    if (path.empty())
        return Fail("info", "no film given (try 'lumenar info --help')");
    if (path.rfind("http://", 0) == 0 || path.rfind("https://", 0) == 0)
        return Fail(path, "info reads film files (.flm); addresses are not supported by info");

    auto stream = ReadInputFile(path);
    if (!stream.ok())
        return Fail(path, stream.error().message);
    film::Film film;
    int result = 0;
    if (platform::CompoundStorage::Sniff(*stream)) {
        result = film.Load(path);
    } else {
        // A film stream: the film file sits between its two markers.
        const std::span<const std::uint8_t> file = film::FilmFileInStream(*stream);
        if (file.empty())
            return Fail(path, "not a film file or film stream (no compound-file signature, no film markers)");
        auto root = platform::CompoundStorage::OpenMemory(file);
        if (!root.ok())
            return Fail(path, root.error().message);
        result = film::LoadFilmStorage(film, std::move(root).value());
    }
    std::cout << FilmToJson(film, result, codePage) << '\n';
    return 0;
}

} // namespace lumenar::app
