#include "app/Commands.h"
#include "playback/ClipPlayer.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

namespace lumenar::app {

int Fail(std::string_view input, std::string_view message)
{
    std::fprintf(stderr, "lumenar: %.*s: %.*s\n", static_cast<int>(input.size()), input.data(),
                 static_cast<int>(message.size()), message.data());
    return 2;
}

bool ParseInt(const std::string& text, long long low, long long high, long long& out)
{
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0' || errno != 0 || value < low || value > high)
        return false;
    out = value;
    return true;
}

bool ParseProgress(const std::string& text, long long& n, long long& d)
{
    const auto slash = text.find('/');
    return slash != std::string::npos && ParseInt(text.substr(0, slash), 0, INT32_MAX, n) &&
           ParseInt(text.substr(slash + 1), 1, INT32_MAX, d) && n <= d;
}

bool ParseSize(const std::string& text, long long low, long long high, int& width, int& height)
{
    const std::size_t x = text.find('x');
    long long w = 0, h = 0;
    if (x == std::string::npos || !ParseInt(text.substr(0, x), low, high, w) ||
        !ParseInt(text.substr(x + 1), low, high, h))
        return false;
    width = static_cast<int>(w);
    height = static_cast<int>(h);
    return true;
}

namespace {

struct Command
{
    const char* name;
    int (*run)(Args);
    const char* summary;
};

constexpr Command kCommands[] = {
    {"play", PlayCommand, "play a film stream from a file or URL in the player control"},
    {"render", RenderCommand, "export a film to a video (.mp4, .webm), an animated .gif or PNG frames"},
    {"decode", DecodeCommand, "decode one photo with the player's decoder to a .bmp, .png or .ppm picture"},
    {"info", InfoCommand, "print a film file's settings, items and captions as JSON"},
    {"effects", EffectsCommand, "list the rows of both effect tables"},
    {"effect", EffectCommand, "render one frame of a picture transition between two pictures"},
    {"gallery", GalleryCommand, "write an offline web page with an animated preview of every effect row"},
    {"caption", CaptionCommand, "draw a caption on a picture with a text effect, or print its layout"},
    {"pack", PackCommand, "pack photos, masks, narration and music into a film stream"},
    {"narration", NarrationCommand, "decode narration (.ca) to a wave file, or pack G.723.1 frames into .ca"},
    {"register", RegisterCommand, "register the player control and the film type for the current user"},
    {"unregister", UnregisterCommand, "remove exactly what 'register' wrote"},
};

void PrintUsage(std::FILE* out)
{
    std::fprintf(out, "usage: lumenar COMMAND [ARGS...]\n\ncommands:\n");
    for (const Command& command : kCommands)
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    std::fprintf(out, "\n'lumenar COMMAND --help' describes one command.\n");
}

int Run(int argc, char** argv)
{
    if (argc < 2) {
        PrintUsage(stderr);
        return 2;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        PrintUsage(stdout);
        return 0;
    }
    if (name == "--version") {
        std::printf(
            "lumenar 0.1\nplayback: film streams from files and http, https and file addresses, photo items "
            "with masks, picture transitions, captions, narration\n"
            "not yet built: the picture and text effect rows 'lumenar effects' lists as not-built, "
            "the background-music controller (the control never starts it)\n"
            "stand-ins: %.*s\n",
            static_cast<int>(playback::kPlayersSummary.size()), playback::kPlayersSummary.data());
        return 0;
    }
    const std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command& command : kCommands) {
        if (name == command.name)
            return command.run(args);
    }
    return Fail(name, "unknown command (try 'lumenar --help')");
}

} // namespace
} // namespace lumenar::app

int main(int argc, char** argv)
{
    try {
        return lumenar::app::Run(argc, argv);
    } catch (const std::exception& e) {
        // Name the command, so that the line says what was being done.
        return lumenar::app::Fail(argc > 1 ? argv[1] : "lumenar", std::string("internal error: ") + e.what());
    }
}
