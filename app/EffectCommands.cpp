#include "app/Commands.h"

#include "app/InputFiles.h"
#include "app/PictureFiles.h"
#include "app/Previews.h"
#include "base/StrCat.h"
#include "effects/EffectTables.h"
#include "effects/EffectRegistry.h"
#include "platform/ImageFile.h"

#include <cstdio>
#include <string>

namespace lumenar::app {

namespace {

constexpr const char* kEffectsHelp =
    "usage: lumenar effects\n"
    "\n"
    "Lists every row of the picture-effect table (99 rows) and the text-effect table (54 rows), one\n"
    "tab-separated line each:\n"
    "  picture|text  row  procedure  direction(0x..)  variant  number  name  built|not-built\n"
    "Rows marked not-built render as a cut (pictures) or draw nothing (text) until their family exists.\n";

constexpr const char* kEffectHelp =
    "usage: lumenar effect --picture N --from A --to B --progress n/d [--seed S] -o OUT\n"
    "       lumenar effect --picture N --from A --to B --frames K [--frame-ms M] [--seed S] -o OUT\n"
    "\n"
    "Renders one frame of picture-effect row N going from picture A to picture B (PNG, BMP or JPEG\n"
    "files of the same size) at progress n/d, and writes it to OUT (.png, .bmp or .ppm). N is a row of\n"
    "the picture table: its number (0-98), its name in any case ('flip-right' for \"Flip right\"), or\n"
    "the start of one name ('lumenar effects' lists them).\n"
    "\n"
    "options:\n"
    "  --seed S       seed the effects' random generator with S instead of the time, so the random\n"
    "                 row and the tile dissolves render the same way every time\n"
    "  --frames K     render K frames (2-1000) from progress 0 to full instead of one: OUT is an\n"
    "                 animated .webp or .gif, or else a folder that receives frame-000.png...\n"
    "  --frame-ms M   how long each frame of an animation shows (default 80)\n"
    "\n"
    "Exit status: 0 when the frame was written, 2 on a bad option, an unreadable picture or an\n"
    "unwritable output.\n";

} // namespace

int EffectsCommand(Args args)
{
    if (!args.empty()) {
        if (args[0] == "--help" || args[0] == "-h") {
            std::fputs(kEffectsHelp, stdout);
            return 0;
        }
        return Fail(args[0], "effects takes no arguments (try 'lumenar effects --help')");
    }
    effects::EffectRegistry registry;
    if (registry.LoadNames(effects::kPictureTable, true) == 0 ||
        registry.LoadNames(effects::kTextTable, true) == 0)
        return Fail("effects", "the effect names file (effect-names.txt next to lumenar) is missing");
    for (int table : {effects::kPictureTable, effects::kTextTable}) {
        const int count = table == effects::kPictureTable ? registry.PictureCount() : registry.TextCount();
        for (int row = 0; row < count; ++row) {
            const effects::EffectRowDescription d = registry.Describe(table, row);
            const bool random = d.built == effects::Built::Random;
            // The random row's own columns are empty: what it runs is drawn anew for every transition.
            std::printf("%s\t%d\t%s\t0x%02X\t%d\t%d\t%s\t%s\n",
                        table == effects::kPictureTable ? "picture" : "text", row, d.procName,
                        random ? 0u : d.direction, random ? 0 : d.variant, d.number, d.name.c_str(),
                        d.built == effects::Built::NotYet ? "not-built" : "built");
        }
    }
    return 0;
}

int EffectCommand(Args args)
{
    long long row = 0, seed = 0, n = 0, d = 0;
    FrameOptions frames;
    bool haveRow = false, haveSeed = false, haveProgress = false;
    std::string from, to, out;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kEffectHelp, stdout);
            return 0;
        }
        if (i + 1 >= args.size())
            return Fail(arg, "needs a value (try 'lumenar effect --help')");
        const std::string& value = args[++i];
        if (const int taken = TakeFrameOption(arg, value, frames); taken >= 0) {
            if (taken != 0)
                return taken;
        } else if (arg == "--picture") {
            // The player clamps a film's out-of-range rows; asked for by number, a wrong row is an error.
            const auto resolved = effects::ResolveEffectRow(effects::kPictureTable, value);
            if (!resolved.ok())
                return Fail(value, resolved.error().message);
            row = *resolved;
            haveRow = true;
        } else if (arg == "--seed") {
            if (!ParseInt(value, 0, UINT32_MAX, seed))
                return Fail(value, "not a seed (0 to 4294967295)");
            haveSeed = true;
        } else if (arg == "--progress") {
            if (!ParseProgress(value, n, d))
                return Fail(value, kProgressMessage);
            haveProgress = true;
        } else if (arg == "--from") {
            from = value;
        } else if (arg == "--to") {
            to = value;
        } else if (arg == "-o" || arg == "--output") {
            out = value;
        } else {
            return Fail(arg, "unknown option for effect (try 'lumenar effect --help')");
        }
    }
    if (!haveRow || (haveProgress == (frames.frames != 0)) || from.empty() || to.empty() || out.empty())
        return Fail("effect", "--picture, --from, --to, -o and one of --progress or --frames are needed");

    auto source = ReadPictureFile(from);
    if (!source.ok())
        return Fail(from, source.error().message);
    auto target = ReadPictureFile(to);
    if (!target.ok())
        return Fail(to, target.error().message);
    if (source->width != target->width || source->height != target->height)
        return Fail(to, "the two pictures must have the same size");

    if (haveSeed)
        effects::EffectRegistry::FixSeed(static_cast<std::uint32_t>(seed));
    effects::EffectRegistry registry;
    const int index = static_cast<int>(row);
    if (frames.frames == 0) {
        const Progress step{static_cast<std::int32_t>(n), static_cast<std::int32_t>(d)};
        const base::Status written = RenderTransition(
            registry, index, *source, *target, std::span(&step, 1),
            [&](const platform::BgrxPicture& frame) { return platform::WriteImageFile(out, frame); });
        return written.ok() ? 0 : Fail(out, WithoutPath(written.error().message, out));
    }
    return WriteFrames(out, source->width, source->height, static_cast<int>(frames.frameMs),
                       [&](const FrameSink& sink) {
                           return RenderTransition(registry, index, *source, *target,
                                                   EvenSteps(static_cast<int>(frames.frames)), sink);
                       });
}

} // namespace lumenar::app
