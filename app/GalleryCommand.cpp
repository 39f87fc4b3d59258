#include "app/Commands.h"

#include "app/InputFiles.h"
#include "app/PictureFiles.h"
#include "app/Previews.h"
#include "base/StrCat.h"
#include "effects/EffectRegistry.h"
#include "effects/EffectTables.h"
#include "records/CaptionFont.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace lumenar::app {

namespace {

constexpr const char* kGalleryHelp =
    "usage: lumenar gallery -o DIR [--size WxH] [--frames K] [--frame-ms M] [--format webp|gif]\n"
    "                       [--seed S] [--from A --to B]\n"
    "\n"
    "Writes DIR/index.html, a page that works offline, with an animated preview of every row of the\n"
    "picture-effect table and the text-effect table beside it (DIR/picture-NN.webp, DIR/text-NN.webp).\n"
    "Each preview is labelled with its table, row, name and whether it is built; rows not built yet\n"
    "are shown as they play today (a cut, or no caption). Picture rows go from one sample picture to\n"
    "another; text rows draw a sample caption over a sample picture.\n"
    "\n"
    "options:\n"
    "  --size WxH     preview size (default 240x180; 16 to 1920 each)\n"
    "  --frames K     frames per preview, from progress 0 to full (default 24; 2-1000)\n"
    "  --frame-ms M   how long each frame shows (default 80)\n"
    "  --format F     webp (default) or gif\n"
    "  --seed S       the effects' random seed (default 1), so the page is the same every time\n"
    "  --from A --to B  pictures of one size to use instead of the samples (--size is then theirs)\n"
    "\n"
    "Exit status: 0 when the page and every preview were written, 2 on a bad option or an unwritable\n"
    "folder.\n";

std::string Html(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

// The caption every text row draws: the film's default style, large enough to read in a small preview.
records::TextRecord SampleCaptionStyle()
{
    records::TextRecord style = records::DefaultCaptionStyle();
    style.x = 80;
    style.y = 150;
    style.font.height = -150;
    style.colour = 0xFFFFFF;
    style.shadow = 1;
    return style;
}

constexpr const char* kPageHead = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>Lumenar effects</title>
<style>
body { font-family: sans-serif; background: #1b1b1f; color: #eee; margin: 1.5em; }
h2 { margin-top: 1.5em; }
.grid { display: flex; flex-wrap: wrap; gap: 14px; }
figure { margin: 0; background: #2a2a30; padding: 6px; border-radius: 4px; }
figure.not-built { outline: 2px dashed #d55; }
figure.not-built img { opacity: 0.45; }
figcaption { font-size: 12px; margin-top: 4px; max-width: 100%; }
.state { font-weight: bold; }
.not-built .state { color: #f77; }
</style></head><body>
<h1>Lumenar effects</h1>
)";

} // namespace

int GalleryCommand(Args args)
{
    std::string out, from, to, format = "webp";
    int width = 240, height = 180;
    long long seed = 1;
    FrameOptions frames{24, 80};
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kGalleryHelp, stdout);
            return 0;
        }
        if (i + 1 >= args.size())
            return Fail(arg, "needs a value (try 'lumenar gallery --help')");
        const std::string& value = args[++i];
        if (const int taken = TakeFrameOption(arg, value, frames); taken >= 0) {
            if (taken != 0)
                return taken;
        } else if (arg == "-o" || arg == "--output") {
            out = value;
        } else if (arg == "--size") {
            if (!ParseSize(value, 16, 1920, width, height))
                return Fail(value, "size must be WxH, each 16 to 1920");
        } else if (arg == "--format") {
            if (value != "webp" && value != "gif")
                return Fail(value, "the format is webp or gif");
            format = value;
        } else if (arg == "--seed") {
            if (!ParseInt(value, 0, UINT32_MAX, seed))
                return Fail(value, "not a seed (0 to 4294967295)");
        } else if (arg == "--from") {
            from = value;
        } else if (arg == "--to") {
            to = value;
        } else {
            return Fail(arg, "unknown option for gallery (try 'lumenar gallery --help')");
        }
    }
    if (out.empty())
        return Fail("gallery", "-o DIR is needed");
    if (from.empty() != to.empty())
        return Fail("gallery", "--from and --to go together");

    platform::BgrxPicture source, target;
    if (!from.empty()) {
        auto a = ReadPictureFile(from);
        if (!a.ok())
            return Fail(from, a.error().message);
        auto b = ReadPictureFile(to);
        if (!b.ok())
            return Fail(to, b.error().message);
        if (a->width != b->width || a->height != b->height)
            return Fail(to, "the two pictures must have the same size");
        source = std::move(*a);
        target = std::move(*b);
    } else {
        source = SamplePicture(0, width, height);
        target = SamplePicture(1, width, height);
    }

    std::error_code error;
    std::filesystem::create_directories(out, error);
    if (!std::filesystem::is_directory(out, error))
        return Fail(out, "cannot be made as a folder");

    effects::EffectRegistry::FixSeed(static_cast<std::uint32_t>(seed));
    effects::EffectRegistry registry;
    if (registry.LoadNames(effects::kPictureTable, true) == 0 ||
        registry.LoadNames(effects::kTextTable, true) == 0)
        return Fail("gallery", "the effect names file (effect-names.txt next to lumenar) is missing");

    const std::vector<Progress> steps = EvenSteps(static_cast<int>(frames.frames));
    const records::TextRecord caption = SampleCaptionStyle();
    std::string page = kPageHead;
    int built[2] = {0, 0}, rows[2] = {registry.PictureCount(), registry.TextCount()};
    std::string sections[2];
    for (int table : {effects::kPictureTable, effects::kTextTable}) {
        const int t = table == effects::kPictureTable ? 0 : 1;
        const char* tableName = t == 0 ? "picture" : "text";
        for (int row = 0; row < rows[t]; ++row) {
            const effects::EffectRowDescription d = registry.Describe(table, row);
            char file[32];
            std::snprintf(file, sizeof file, "%s-%02d.%s", tableName, row, format.c_str());
            const std::string path = (std::filesystem::path(out) / file).string();
            const int status = WriteFrames(
                path, source.width, source.height, static_cast<int>(frames.frameMs),
                [&](const FrameSink& sink) {
                    return t == 0 ? RenderTransition(registry, row, source, target, steps, sink)
                                  : RenderCaption(registry, row, source, caption, "Lumenar", steps, sink);
                });
            if (status != 0)
                return status;
            const bool isBuilt = d.built != effects::Built::NotYet;
            built[t] += isBuilt ? 1 : 0;
            const char* state = d.built == effects::Built::Random ? "built (a row drawn at random)"
                                : isBuilt                         ? "built"
                                : t == 0                          ? "not built: plays as a cut"
                                                                  : "not built: draws nothing";
            sections[t] += base::StrCat("<figure class=\"", isBuilt ? "built" : "not-built", "\"><img src=\"",
                                        file, "\" width=\"", source.width, "\" height=\"", source.height,
                                        "\" alt=\"", tableName, " row ", row, "\"><figcaption>", tableName,
                                        " row ", row, " · ", Html(d.name), " · <span class=\"state\">", state,
                                        "</span></figcaption></figure>\n");
        }
    }
    for (int t = 0; t < 2; ++t)
        page += base::StrCat("<h2>", t == 0 ? "Picture effects" : "Text effects", ": ", rows[t], " rows, ",
                             built[t], " built, ", rows[t] - built[t],
                             " not built</h2>\n<div class=\"grid\">\n", sections[t], "</div>\n");
    page += "</body></html>\n";

    const std::string index = (std::filesystem::path(out) / "index.html").string();
    std::ofstream html(index, std::ios::binary);
    html << page;
    html.close();
    if (!html)
        return Fail(index, "cannot be written");
    std::printf("%s: %d picture rows (%d built), %d text rows (%d built)\n", index.c_str(), rows[0], built[0],
                rows[1], built[1]);
    return 0;
}

} // namespace lumenar::app
