#include "records/CaptionFont.h"

#include "platform/CodePage.h"
#include "platform/FontCatalog.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace lumenar::records {

int FindCaptionFont(LogFont* font)
{
    // The fonts of the system are asked once per process: every new film starts its default caption
    // style here, and an enumeration of the system's fonts is slow next to the rest of a film's making.
    static const std::optional<LogFont> found = []() -> std::optional<LogFont> {
        auto face = platform::FirstTrueTypeFace("Arial");
        if (!face)
            face = platform::FirstTrueTypeFace("");
        if (!face)
            return std::nullopt;
        // The record an enumeration of scalable faces reports: a nominal cell of 16 by 7 pixels, stroke
        // precision, draft quality, the face's own weight, slant and family class.
        LogFont out{};
        out.height = 16;
        out.width = 7;
        out.weight = face->weight;
        out.italic = face->italic ? 1 : 0;
        out.charSet = 0;
        out.outPrecision = 3;
        out.clipPrecision = 2;
        out.quality = 1;
        out.pitchAndFamily = static_cast<std::uint8_t>(face->pitchAndFamily);
        std::strncpy(out.faceName, face->family.c_str(), sizeof out.faceName - 1);
        return out;
    }();
    if (!found || font == nullptr)
        return 0;
    std::memcpy(font, &*found, sizeof *found);
    return 1;
}

TextRecord DefaultCaptionStyle()
{
    TextRecord style{};
    FindCaptionFont(&style.font);
    style.font.height = -48;
    style.font.width = 0;
    style.colour = 0x00FFFFFF;
    style.lineSpacing = 100;
    style.alignment = 0;
    style.shadow = 1;
    return style;
}

platform::TextMetrics HalvedMetrics(platform::TextMetrics m)
{
    // Signed halving rounds toward zero, as the layout's integer divisions do.
    m.height /= 2;
    m.ascent /= 2;
    m.descent /= 2;
    m.internalLeading /= 2;
    m.aveCharWidth /= 2;
    m.maxCharWidth /= 2;
    m.overhang /= 2;
    return m;
}

platform::FontRequest CaptionFontRequest(const records::LogFont& font, int heightFactor)
{
    platform::FontRequest request;
    const std::size_t faceLength = strnlen(font.faceName, sizeof font.faceName);
    request.faceUtf8 = platform::ToUtf8(std::string_view(font.faceName, faceLength), CaptionCodePage(font));
    // Heights beyond any screen are cut to a size fonts can still be made at.
    request.height = static_cast<int>(
        std::clamp<std::int64_t>(static_cast<std::int64_t>(font.height) * heightFactor, -8192, 8192));
    request.width = std::clamp(font.width, 0, 8192);
    request.weight = font.weight;
    request.italic = font.italic != 0;
    return request;
}

int CaptionCodePage(const LogFont& font)
{
    return platform::CodePageOfCharSet(font.charSet).value_or(platform::ActiveCodePage());
}

} // namespace lumenar::records
