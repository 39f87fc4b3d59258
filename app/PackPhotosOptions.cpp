#include "app/PackPhotosOptions.h"

#include "effects/EffectRegistry.h"

namespace lumenar::app {

OptionTaken TakePackPhotosOption(Args args, std::size_t& i, PackPhotosOptions& options)
{
    const std::string& arg = args[i];
    if (arg != "--photos" && arg != "--seconds" && arg != "--effect" && arg != "--effect-ms" &&
        arg != "--captions")
        return OptionTaken::No;
    auto bad = [&](std::string input, std::string message) {
        options.badInput = std::move(input);
        options.badMessage = std::move(message);
        return OptionTaken::Bad;
    };
    if (i + 1 >= args.size())
        return bad(arg, arg == "--photos" ? "needs a folder" : "needs a value");
    const std::string& value = args[++i];
    if (arg == "--photos") {
        options.folder = value;
        return OptionTaken::Yes;
    }
    options.given = true;
    if (arg == "--seconds") {
        long long seconds = 0;
        if (!ParseInt(value, 1, 3600, seconds))
            return bad(value, "not a number of seconds (1 to 3600)");
        options.film.seconds = static_cast<std::int32_t>(seconds);
    } else if (arg == "--effect-ms") {
        long long ms = 0;
        if (!ParseInt(value, 0, 60000, ms))
            return bad(value, "not a transition length (0 to 60000 ms)");
        options.film.effectMs = static_cast<std::int32_t>(ms);
    } else if (arg == "--effect") {
        auto effect = effects::ResolveEffectRow(effects::kPictureTable, value);
        if (!effect.ok())
            return bad(value, effect.error().message);
        options.film.effect = *effect;
    } else {
        if (value != "names")
            return bad(value, "--captions takes 'names' (each photo's file name)");
        options.film.captionNames = true;
    }
    return OptionTaken::Yes;
}

} // namespace lumenar::app
