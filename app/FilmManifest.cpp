#include "app/FilmManifest.h"

#include "base/ByteReader.h"
#include "effects/EffectRegistry.h"
#include "base/StrCat.h"
#include "film/FilmReceiver.h"
#include "platform/CodePage.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace lumenar::app {
namespace {

using base::Error;
using base::ErrorCode;
using base::StrCat;

Error LineError(int line, std::string_view message)
{
    return Error{ErrorCode::BadData, StrCat("line ", line, ": ", message)};
}

// Splits a line into words; double quotes group words, with \" and \\ as escapes inside them.
base::Result<std::vector<std::string>> Words(std::string_view line, int number)
{
    std::vector<std::string> words;
    std::size_t i = 0;
    while (i < line.size()) {
        if (line[i] == ' ' || line[i] == '\t' || line[i] == '\r') {
            ++i;
            continue;
        }
        if (line[i] == '#')
            break;
        std::string word;
        bool quoted = false;
        for (; i < line.size(); ++i) {
            const char c = line[i];
            if (!quoted && (c == ' ' || c == '\t' || c == '\r'))
                break;
            if (c == '"') {
                quoted = !quoted;
            } else if (quoted && c == '\\' && i + 1 < line.size()) {
                word += line[++i];
            } else {
                word += c;
            }
        }
        if (quoted)
            return LineError(number, "a quote is not closed");
        words.push_back(std::move(word));
    }
    return words;
}

base::Result<std::int32_t> Number(const std::string& text, int line, std::string_view what)
{
    char* end = nullptr;
    errno = 0;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const long long value = std::strtoll(text.c_str(), &end, hex ? 16 : 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < INT32_MIN || value > INT32_MAX)
        return LineError(line, StrCat(what, " \"", text, "\" is not a 32-bit number"));
    return static_cast<std::int32_t>(value);
}

std::string BaseName(const std::string& path)
{
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool IsDiscTrack(const std::string& name)
{
    if (name.size() < 4)
        return false;
    std::string extension = name.substr(name.size() - 4);
    for (char& c : extension)
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return extension == ".cda";
}

struct JpegFrame
{
    std::int32_t width = 0;
    std::int32_t height = 0;
    int lumaH = 1; ///< The first component's horizontal sampling factor.
};

// Size and luma sampling from a JPEG picture's frame header; empty when there is none.
std::optional<JpegFrame> JpegSize(std::span<const std::uint8_t> bytes)
{
    base::ByteReader in(bytes);
    auto soi = in.ReadU16BE();
    if (!soi.ok() || *soi != 0xFFD8)
        return std::nullopt;
    for (;;) {
        auto marker = in.ReadU16BE();
        auto length = in.ReadU16BE();
        if (!marker.ok() || !length.ok() || (*marker & 0xFF00) != 0xFF00 || *length < 2)
            return std::nullopt;
        const unsigned code = *marker & 0xFF;
        if (code >= 0xC0 && code <= 0xC2) {
            auto precision = in.ReadU8();
            auto height = in.ReadU16BE();
            auto width = in.ReadU16BE();
            if (!precision.ok() || !height.ok() || !width.ok())
                return std::nullopt;
            JpegFrame frame{static_cast<std::int32_t>(*width), static_cast<std::int32_t>(*height), 1};
            auto components = in.ReadU8();
            auto id = in.ReadU8();
            auto sampling = in.ReadU8();
            if (components.ok() && *components > 0 && id.ok() && sampling.ok())
                frame.lumaH = *sampling >> 4;
            return frame;
        }
        if (!in.Skip(*length - 2u).ok())
            return std::nullopt;
    }
}

struct Builder
{
    const ManifestFileReader& readFile;
    const ManifestPictureFilter& filter;
    ManifestFilm out;
    std::optional<film::FilmItem> item;
    film::ItemMedia media;
    bool effectLine = false;   // The item has an `effect` line,
    bool effectMsLine = false; // and an `effect-ms` line.

    base::Result<std::vector<std::uint8_t>> Load(const std::string& name, int line)
    {
        auto bytes = readFile(name);
        if (!bytes.ok())
            return LineError(line, bytes.error().message);
        return bytes;
    }

    // Text as the film holds it: the manifest's UTF-8 in the film's code page.
    base::Result<std::string> InCodePage(const std::string& utf8, int line)
    {
        auto converted = platform::FromUtf8(utf8, out.codePage);
        if (!converted.ok())
            return LineError(line, converted.error().message);
        return converted;
    }

    base::Result<std::int32_t> EffectRow(int table, const std::string& text, int line)
    {
        auto row = effects::ResolveEffectRow(table, text);
        if (!row.ok())
            return LineError(line, StrCat("effect \"", text, "\": ", row.error().message));
        return *row;
    }

    // Loads a photo or mask and passes it through the filter; returns its bytes and sets its film name.
    base::Result<std::vector<std::uint8_t>> LoadPicture(const std::string& name, PictureRole role, int line,
                                                        std::string& filmName)
    {
        FilmPicture picture{LUM_TRY(Load(name, line)), BaseName(name)};
        if (picture.bytes.empty())
            return LineError(line,
                             StrCat(role == PictureRole::Photo ? "photo " : "mask ", name, " is empty"));
        if (filter) {
            auto filtered = filter(std::move(picture), role, static_cast<int>(out.media.size()) + 1);
            if (!filtered.ok())
                return LineError(line, StrCat(name, ": ", filtered.error().message));
            picture = std::move(*filtered);
        }
        filmName = film::SizedName(picture.bytes.size(), picture.name);
        return std::move(picture.bytes);
    }

    void FinishItem()
    {
        if (!item)
            return;
        // A transition named without a length would play as a cut: give it a second.
        if (effectLine && !effectMsLine && item->effectMs == 0)
            item->effectMs = kDefaultEffectMs;
        effectLine = effectMsLine = false;
        const std::int32_t number = out.film.AddItem(*item);
        for (const film::FilmText& text : item->texts)
            out.film.AddText(number, text);
        out.media.push_back(std::move(media));
        item.reset();
        media = {};
    }

    base::Status Caption(const std::vector<std::string>& words, int line)
    {
        film::FilmText caption;
        caption.style = out.film.CaptionStyle();
        caption.style.x = 0;
        caption.style.y = 0;
        caption.style.extentWidth = caption.style.extentHeight = 0;
        caption.style.effectState = 0;
        bool hasText = false;
        for (std::size_t i = 1; i < words.size(); ++i) {
            const std::size_t eq = words[i].find('=');
            if (eq == std::string::npos)
                return LineError(line, StrCat("caption setting \"", words[i], "\" is not key=value"));
            const std::string key = words[i].substr(0, eq);
            const std::string value = words[i].substr(eq + 1);
            records::TextRecord& style = caption.style;
            if (key == "text") {
                caption.text = LUM_TRY(InCodePage(value, line));
                if (caption.text.size() > 255)
                    return LineError(line, StrCat("caption text has ", caption.text.size(),
                                                  " bytes in code page ", out.codePage, " (at most 255)"));
                hasText = true;
            } else if (key == "face") {
                const std::string face = LUM_TRY(InCodePage(value, line));
                if (face.size() >= sizeof style.font.faceName)
                    return LineError(line, StrCat("font face \"", value, "\" is longer than 31 bytes"));
                std::memset(style.font.faceName, 0, sizeof style.font.faceName);
                std::memcpy(style.font.faceName, face.data(), face.size());
            } else if (key == "effect") {
                caption.effect = LUM_TRY(EffectRow(effects::kTextTable, value, line));
            } else if ((key == "colour" || key == "color") && value.starts_with('#')) {
                const auto colour = ParseHashColour(value);
                if (!colour)
                    return LineError(line, StrCat("colour \"", value, "\" is not #RRGGBB"));
                style.colour = *colour;
            } else {
                const std::int32_t number = LUM_TRY(Number(value, line, key));
                if (key == "x")
                    style.x = number;
                else if (key == "y")
                    style.y = number;
                else if (key == "height")
                    style.font.height = number; // As `lumenar caption --height`: negative = character height.
                else if (key == "colour" || key == "color")
                    style.colour = static_cast<std::uint32_t>(number);
                else if (key == "align")
                    style.alignment = number;
                else if (key == "shadow")
                    style.shadow = number;
                else if (key == "spacing")
                    style.lineSpacing = number;
                else if (key == "weight")
                    style.font.weight = number;
                else if (key == "italic")
                    style.font.italic = number != 0 ? 1 : 0;
                else
                    return LineError(line, StrCat("unknown caption setting \"", key, "\""));
            }
        }
        if (!hasText)
            return LineError(line, "a caption needs text=\"…\"");
        // The font records the page its text is in, so that a player reads it back in that page.
        caption.style.font.charSet = platform::CharSetOfCodePage(out.codePage).value_or(0);
        item->texts.push_back(caption);
        return {};
    }

    base::Status Line(const std::vector<std::string>& words, int line)
    {
        const std::string& key = words[0];
        auto expect = [&](std::size_t count) -> base::Status {
            if (words.size() != count + 1)
                return LineError(line,
                                 StrCat("\"", key, "\" takes ", count, count == 1 ? " value" : " values"));
            return {};
        };
        if (key == "photo") {
            LUM_TRY(expect(1));
            FinishItem();
            item = film::FilmItem{};
            item->kind = film::kFilmItemPhoto;
            item->displaySeconds = 5;
            media.photo = LUM_TRY(LoadPicture(words[1], PictureRole::Photo, line, item->photo.cstrName));
            if (const auto size = JpegSize(media.photo)) {
                item->width = size->width;
                item->height = size->height;
                // The player steps through the luma plane by the width rounded up to 8, while a photo
                // with halved chroma is stored in rows of whole 16-pixel units: such a photo shows
                // sheared unless its width rounds up to a multiple of 16.
                if (size->lumaH == 2 && ((size->width + 7) / 8) % 2 == 1)
                    out.warnings.push_back(
                        StrCat("photo ", words[1], " is ", size->width,
                               " pixels wide with halved chroma: the player shows it sheared "
                               "(encode it at 4:4:4, e.g. cjpeg -sample 1x1, or make it a "
                               "multiple of 16 pixels wide)"));
            }
            return {};
        }
        if (key == "music" || key == "advance" || key == "loop" || key == "codepage") {
            if (item)
                return LineError(line,
                                 StrCat("\"", key, "\" is a film setting: put it before the first photo"));
            LUM_TRY(expect(1));
            if (key == "music") {
                if (IsDiscTrack(words[1])) {
                    out.film.SetMusic(words[1]); // A disc track: played from the disc, not carried.
                    return {};
                }
                out.music = LUM_TRY(Load(words[1], line));
                out.film.SetMusic(film::SizedName(out.music.size(), BaseName(words[1])));
            } else if (key == "advance") {
                if (words[1] == "automatic")
                    out.film.SetAdvanceMode(film::kAdvanceAutomatic);
                else if (words[1] == "manual")
                    out.film.SetAdvanceMode(film::kAdvanceManual);
                else
                    return LineError(line, StrCat("advance \"", words[1], "\" is not automatic or manual"));
            } else if (key == "codepage") {
                const std::int32_t page = LUM_TRY(Number(words[1], line, "codepage"));
                if (!platform::IsSupportedCodePage(page) || !platform::CharSetOfCodePage(page))
                    return LineError(line, StrCat("code page ", page, " is not one a film can record"));
                out.codePage = page;
            } else {
                out.film.SetLoop(LUM_TRY(Number(words[1], line, "loop")));
            }
            return {};
        }
        if (!item)
            return LineError(line, StrCat("\"", key, "\" belongs to an item: start one with \"photo FILE\""));
        if (key == "caption")
            return Caption(words, line);
        if (key == "mask" || key == "sound") {
            LUM_TRY(expect(1));
            std::vector<std::uint8_t>& bytes = key == "mask" ? media.mask : media.sound;
            film::FilmFile& file = key == "mask" ? item->mask : item->sound;
            if (key == "mask") {
                bytes = LUM_TRY(LoadPicture(words[1], PictureRole::Mask, line, file.cstrName));
                return {};
            }
            bytes = LUM_TRY(Load(words[1], line));
            if (bytes.empty())
                return LineError(line, StrCat(key, " ", words[1], " is empty"));
            file.cstrName = film::SizedName(bytes.size(), BaseName(words[1]));
            return {};
        }
        if (key == "size") {
            LUM_TRY(expect(2));
            item->width = LUM_TRY(Number(words[1], line, "width"));
            item->height = LUM_TRY(Number(words[2], line, "height"));
            return {};
        }
        if (key == "rect") {
            LUM_TRY(expect(4));
            for (int i = 0; i < 4; ++i)
                item->rect[i] = LUM_TRY(Number(words[static_cast<std::size_t>(i) + 1], line, "rect"));
            return {};
        }
        LUM_TRY(expect(1));
        if (key == "effect") {
            item->effect = LUM_TRY(EffectRow(effects::kPictureTable, words[1], line));
            effectLine = true;
            return {};
        }
        const std::int32_t value = LUM_TRY(Number(words[1], line, key));
        if (key == "effect-ms") {
            item->effectMs = value;
            effectMsLine = true;
        } else if (key == "seconds")
            item->displaySeconds = value;
        else
            return LineError(line, StrCat("unknown setting \"", key, "\""));
        return {};
    }
};

} // namespace

std::optional<std::uint32_t> ParseHashColour(std::string_view text)
{
    if (text.size() != 7 || text[0] != '#' || !std::all_of(text.begin() + 1, text.end(), [](char c) {
            return std::isxdigit(static_cast<unsigned char>(c));
        }))
        return std::nullopt;
    const auto rgb =
        static_cast<std::uint32_t>(std::strtoul(std::string(text.substr(1)).c_str(), nullptr, 16));
    return ((rgb & 0xFF) << 16) | (rgb & 0xFF00) | (rgb >> 16);
}

base::Result<ManifestFilm> ReadFilmManifest(std::string_view text, const ManifestFileReader& readFile,
                                            const ManifestPictureFilter& filter)
{
    Builder builder{readFile, filter, {}, std::nullopt, {}};
    int number = 0;
    while (!text.empty()) {
        ++number;
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        const std::vector<std::string> words = LUM_TRY(Words(line, number));
        if (!words.empty())
            LUM_TRY(builder.Line(words, number));
    }
    builder.FinishItem();
    if (builder.out.film.ItemCount() < 1)
        return Error{ErrorCode::BadData, "the manifest has no photo"};
    return std::move(builder.out);
}

} // namespace lumenar::app
