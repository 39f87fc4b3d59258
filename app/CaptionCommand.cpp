#include "app/Commands.h"

#include "app/CaptionJson.h"
#include "app/FilmManifest.h"
#include "app/InputFiles.h"
#include "app/PictureFiles.h"
#include "app/Previews.h"
#include "base/StrCat.h"
#include "effects/EffectRegistry.h"
#include "effects/EffectTables.h"
#include "platform/CodePage.h"
#include "platform/ImageFile.h"
#include "playback/CaptionLayout.h"
#include "records/CaptionFont.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace lumenar::app {

namespace {

constexpr const char* kCaptionHelp =
    "usage: lumenar caption --on PICTURE --text TEXT [--effect N] [--progress n/d] [--x X --y Y\n"
    "         --height H --face NAME --weight W --italic --colour C --align 0|1|2 --spacing P\n"
    "         --shadow 0|1 --codepage N] [--frame WxH] [--frames K [--frame-ms M]] -o OUT\n"
    "       lumenar caption --glyphs --text TEXT [same caption options] [--on PICTURE | --frame WxH]\n"
    "\n"
    "Draws one caption on PICTURE (PNG, BMP or JPEG) the way the player does: the caption is scaled\n"
    "for the frame (positions and height are in pixels of an 800-pixel-wide frame), laid out, and\n"
    "text-effect row N (default 4, shown whole from half time) is initialised, rendered once at\n"
    "progress n/d (default 1/1) and released. Writes OUT (.png, .bmp or .ppm).\n"
    "\n"
    "options (defaults are the film's default caption style):\n"
    "  --text TEXT     the caption in UTF-8; \\r\\n breaks a line, \\\\ is a backslash; at most 255\n"
    "                  bytes once in the code page\n"
    "  --codepage N    the code page the caption is written in (default 1252; 1250-1258, 932, 936,\n"
    "                  949, 950): a character it cannot hold is an error\n"
    "  --x X --y Y     top-left corner (default 40 40)\n"
    "  --height H      font height, negative for the character height (default -48)\n"
    "  --face NAME     font family (default: the first TrueType face of Arial, else any)\n"
    "  --weight W      400 regular, 700 bold (default: the face's own)\n"
    "  --colour C      text colour as 0xBBGGRR or #RRGGBB (default 0xFFFFFF)\n"
    "  --align A       0 left, 1 centre, 2 right (default 0)\n"
    "  --spacing P     baseline distance in percent of the font height (default 100)\n"
    "  --shadow S      1 draws a drop shadow (default 1)\n"
    "  --frame WxH     frame size: PICTURE is stretched to it (default: PICTURE's size, or 800x600)\n"
    "  --effect N      text-effect row by number (0-53) or name, or the start of one name\n"
    "                  ('lumenar effects' lists them)\n"
    "  --frames K      render K frames (2-1000) from progress 0 to full instead of one: OUT is an\n"
    "                  animated .webp or .gif, or else a folder that receives frame-000.png...\n"
    "  --frame-ms M    how long each frame of an animation shows (default 80)\n"
    "  --glyphs        print the layout as JSON instead of drawing:\n"
    "                  {\"extent\":[w,h],\"ascent\":N,\"descent\":N,\"height\":N,\"glyphs\":[{\"code\":N,\n"
    "                  \"line\":N,\"gx\":N,\"gy\":N,\"cw\":N,\"ch\":N},...]}\n"
    "\n"
    "Exit status: 0 when the picture (or the layout) was written, 2 on a bad option, an unreadable\n"
    "picture or an unwritable output.\n";

// Film captions are at most 256 bytes with their terminating zero.
constexpr std::size_t kMaxCaptionBytes = 255;

std::string Unescape(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            const char next = text[i + 1];
            if (next == 'r' || next == 'n' || next == '\\') {
                out += next == 'r' ? '\r' : next == 'n' ? '\n' : '\\';
                ++i;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

// Nearest-neighbour stretch of a bottom-up picture to a new size.
platform::BgrxPicture Stretch(const platform::BgrxPicture& in, int width, int height)
{
    platform::BgrxPicture out{width, height,
                              std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 4)};
    for (int y = 0; y < height; ++y) {
        const int fromY = static_cast<int>(static_cast<std::int64_t>(y) * in.height / height);
        for (int x = 0; x < width; ++x) {
            const int fromX = static_cast<int>(static_cast<std::int64_t>(x) * in.width / width);
            std::memcpy(&out.pixels[(static_cast<std::size_t>(y) * width + x) * 4],
                        &in.pixels[(static_cast<std::size_t>(fromY) * in.width + fromX) * 4], 4);
        }
    }
    return out;
}

} // namespace

int CaptionCommand(Args args)
{
    // The film's default caption style, at the command's own default place.
    records::TextRecord record = records::DefaultCaptionStyle();
    record.x = 40;
    record.y = 40;

    long long effect = 4, n = 1, d = 1;
    FrameOptions frames;
    int frameWidth = 0, frameHeight = 0;
    bool haveText = false, glyphsOnly = false, haveProgress = false;
    std::string on, out, text, face;
    int codePage = platform::kDefaultCodePage;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kCaptionHelp, stdout);
            return 0;
        }
        if (arg == "--italic") {
            record.font.italic = 1;
            continue;
        }
        if (arg == "--glyphs") {
            glyphsOnly = true;
            continue;
        }
        if (i + 1 >= args.size())
            return Fail(arg, "needs a value (try 'lumenar caption --help')");
        const std::string& value = args[++i];
        long long number = 0;
        auto integer = [&](long long low, long long high) { return ParseInt(value, low, high, number); };
        if (const int taken = TakeFrameOption(arg, value, frames); taken >= 0) {
            if (taken != 0)
                return taken;
        } else if (arg == "--on") {
            on = value;
        } else if (arg == "-o" || arg == "--output") {
            out = value;
        } else if (arg == "--text") {
            text = Unescape(value);
            haveText = true;
        } else if (arg == "--codepage") {
            if (!integer(0, 65535) || !platform::IsSupportedCodePage(static_cast<int>(number)) ||
                !platform::CharSetOfCodePage(static_cast<int>(number)))
                return Fail(value, "not a code page a caption can record (1250-1258, 932, 936, 949, 950)");
            codePage = static_cast<int>(number);
        } else if (arg == "--effect") {
            const auto resolved = effects::ResolveEffectRow(effects::kTextTable, value);
            if (!resolved.ok())
                return Fail(value, resolved.error().message);
            effect = *resolved;
        } else if (arg == "--progress") {
            if (!ParseProgress(value, n, d))
                return Fail(value, kProgressMessage);
            haveProgress = true;
        } else if (arg == "--x" || arg == "--y") {
            if (!integer(-100000, 100000))
                return Fail(value, "not a position (-100000 to 100000)");
            (arg == "--x" ? record.x : record.y) = static_cast<std::int32_t>(number);
        } else if (arg == "--height") {
            if (!integer(-2000, 2000))
                return Fail(value, "not a font height (-2000 to 2000)");
            record.font.height = static_cast<std::int32_t>(number);
        } else if (arg == "--face") {
            face = value;
        } else if (arg == "--weight") {
            if (!integer(0, 1000))
                return Fail(value, "not a weight (0 to 1000)");
            record.font.weight = static_cast<std::int32_t>(number);
        } else if (arg == "--colour" || arg == "--color") {
            char* end = nullptr;
            const unsigned long colour = std::strtoul(value.c_str(), &end, 16);
            if (const auto hash = ParseHashColour(value))
                record.colour = *hash;
            else if (value.empty() || *end != '\0' || colour > 0xFFFFFF)
                return Fail(value, "not a colour (0xBBGGRR or #RRGGBB)");
            else
                record.colour = static_cast<std::uint32_t>(colour);
        } else if (arg == "--align") {
            if (!integer(0, 2))
                return Fail(value, "alignment is 0, 1 or 2");
            record.alignment = static_cast<std::int32_t>(number);
        } else if (arg == "--spacing") {
            if (!integer(-10000, 10000))
                return Fail(value, "not a line spacing (-10000 to 10000 percent)");
            record.lineSpacing = static_cast<std::int32_t>(number);
        } else if (arg == "--shadow") {
            if (!integer(0, 1))
                return Fail(value, "shadow is 0 or 1");
            record.shadow = static_cast<std::int32_t>(number);
        } else if (arg == "--frame") {
            if (!ParseSize(value, 1, 16384, frameWidth, frameHeight))
                return Fail(value, "frame must be WxH, each 1 to 16384");
        } else {
            return Fail(arg, "unknown option for caption (try 'lumenar caption --help')");
        }
    }
    if (!haveText)
        return Fail("caption", "--text is needed");
    // Text and face come as UTF-8 and go into the caption in its code page, which its font records.
    auto converted = platform::FromUtf8(text, codePage);
    if (!converted.ok())
        return Fail("--text", converted.error().message);
    text = std::move(*converted);
    if (text.size() > kMaxCaptionBytes)
        return Fail("--text", base::StrCat("a caption holds at most 255 bytes (this one has ", text.size(),
                                           " in code page ", codePage, ")"));
    record.font.charSet = platform::CharSetOfCodePage(codePage).value_or(0);
    if (!face.empty()) {
        auto faceBytes = platform::FromUtf8(face, codePage);
        if (!faceBytes.ok())
            return Fail("--face", faceBytes.error().message);
        if (faceBytes->size() >= sizeof record.font.faceName)
            return Fail(face, "a face name has 1 to 31 bytes");
        std::memset(record.font.faceName, 0, sizeof record.font.faceName);
        std::memcpy(record.font.faceName, faceBytes->data(), faceBytes->size());
    }
    if (!glyphsOnly && (on.empty() || out.empty()))
        return Fail("caption", "--on and -o are needed (or --glyphs to print the layout)");
    if (frames.frames != 0 && (haveProgress || glyphsOnly))
        return Fail("--frames", "renders from progress 0 to full: leave out --progress and --glyphs");

    platform::BgrxPicture frame;
    if (!on.empty()) {
        auto picture = ReadPictureFile(on);
        if (!picture.ok())
            return Fail(on, picture.error().message);
        frame = std::move(*picture);
        if (frameWidth != 0 && (frameWidth != frame.width || frameHeight != frame.height))
            frame = Stretch(frame, frameWidth, frameHeight);
    } else {
        frame.width = frameWidth != 0 ? frameWidth : 800;
        frame.height = frameHeight != 0 ? frameHeight : 600;
    }

    effects::EffectRegistry registry;
    const int row = static_cast<int>(effect);
    if (glyphsOnly) {
        playback::PreparedCaption caption;
        const int count =
            playback::PrepareCaption(record, text, playback::CaptionScale(frame.width), caption);
        if (count == 0 && !text.empty())
            return Fail(record.font.faceName, "no font could be made for the caption");
        const std::string json = CaptionLayoutJson(
            caption.record.extentWidth, caption.record.extentHeight, caption.info.metrics,
            std::span<const records::Glyph>(caption.glyphs.data(), static_cast<std::size_t>(count)));
        std::printf("%s\n", json.c_str());
        return 0;
    }
    if (frames.frames != 0) {
        return WriteFrames(out, frame.width, frame.height, static_cast<int>(frames.frameMs),
                           [&](const FrameSink& sink) {
                               return RenderCaption(registry, row, frame, record, text,
                                                    EvenSteps(static_cast<int>(frames.frames)), sink);
                           });
    }
    const Progress step{static_cast<std::int32_t>(n), static_cast<std::int32_t>(d)};
    bool rendered = false;
    const base::Status status = RenderCaption(registry, row, frame, record, text, std::span(&step, 1),
                                              [&](const platform::BgrxPicture& drawn) {
                                                  rendered = true;
                                                  return platform::WriteImageFile(out, drawn);
                                              });
    if (!status.ok())
        return rendered ? Fail(out, WithoutPath(status.error().message, out))
                        : Fail(record.font.faceName, status.error().message);
    return 0;
}

} // namespace lumenar::app
