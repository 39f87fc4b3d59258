#include "playback/CaptionLayout.h"

#include "platform/CodePage.h"
#include "records/CaptionFont.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace lumenar::playback {

namespace {

constexpr std::size_t kMaxLines = 256;

// 32-bit arithmetic with the wrap-around of the original machine, without undefined overflow.
std::int32_t WrapMul(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

} // namespace

int LayoutCaption(const records::TextRecord& record, const char* text, std::span<records::Glyph> glyphs,
                  std::int32_t* extent, CaptionLayoutInfo* info)
{
    if (text == nullptr)
        return 0;
    auto font = platform::Font::Create(records::CaptionFontRequest(record.font, 2));
    if (!font.ok())
        return 0;
    const platform::TextMetrics doubleSize = (*font)->Metrics();
    const platform::TextMetrics m = records::HalvedMetrics(doubleSize);
    const int doubleHeight = doubleSize.height;

    const int codePage = records::CaptionCodePage(record.font);
    const std::size_t n = std::strlen(text);
    // Line widths of this layout; entries past the last line stay 0.
    std::array<std::int32_t, kMaxLines> lineWidths{};
    std::int32_t penX = 0;
    std::int32_t y = m.ascent;
    std::size_t line = 0;
    std::size_t count = 0;
    std::size_t at = 0; // Byte position; the position counter of the loop is the glyph and break count.
    while (at < n && count < glyphs.size()) {
        if (text[at] == '\r' && text[at + 1] == '\n') {
            if (penX > 0 && line < kMaxLines)
                lineWidths[line++] = penX;
            penX = 0;
            at += 2;
            y = static_cast<std::int32_t>(
                static_cast<std::uint32_t>(y) +
                static_cast<std::uint32_t>(WrapMul(record.lineSpacing, m.height) / 100));
            continue;
        }
        const auto lead = static_cast<std::uint8_t>(text[at]);
        std::uint16_t code = lead;
        std::size_t size = 1;
        // A double-byte character; a lead byte at the very end stands alone (the text stops at its zero).
        if (platform::IsLeadByte(codePage, lead) && at + 1 < n) {
            code = static_cast<std::uint16_t>(lead << 8 | static_cast<std::uint8_t>(text[at + 1]));
            size = 2;
        }
        const int advance = (*font)->Advance(platform::CharacterToUnicode(code, codePage));
        records::Glyph& g = glyphs[count++];
        g.code = code;
        g.line = static_cast<std::uint16_t>(line);
        g.gx = penX;
        g.gy = y;
        g.cw = advance / 2;
        g.ch = doubleHeight / 2;
        penX += g.cw - m.overhang;
        at += size;
    }
    if (penX > 0 && line < kMaxLines)
        lineWidths[line++] = penX;

    std::int32_t width = std::numeric_limits<std::int32_t>::min();
    for (std::size_t i = 0; i < line; ++i)
        width = std::max(width, lineWidths[i]);
    const std::int32_t height = y + m.descent;
    if (extent != nullptr) {
        extent[0] = width;
        extent[1] = height;
    }
    if (record.alignment != 0) {
        for (std::size_t i = 0; i < count; ++i) {
            records::Glyph& g = glyphs[i];
            const std::int64_t spare =
                static_cast<std::int64_t>(width) - lineWidths[std::min<std::size_t>(g.line, kMaxLines - 1)];
            const std::int64_t offset = record.alignment == 2 ? spare : spare / 2;
            g.gx = static_cast<std::int32_t>(g.gx + offset);
        }
    }
    if (info != nullptr) {
        info->metrics = m;
        info->width = width;
        info->height = height;
    }
    return static_cast<int>(count);
}

float CaptionScale(int frameWidth)
{
    return static_cast<float>(frameWidth * 0.00125);
}

int PrepareCaption(const records::TextRecord& style, const std::string& text, float scale,
                   PreparedCaption& out)
{
    records::TextRecord& record = out.record;
    record = style;
    record.effectState = 0;
    // The product is a 32-bit float, truncated toward zero.
    record.x = static_cast<std::int32_t>(static_cast<float>(record.x) * scale);
    record.y = static_cast<std::int32_t>(static_cast<float>(record.y) * scale);
    record.font.height = static_cast<std::int32_t>(static_cast<float>(record.font.height) * scale);
    std::int32_t extent[2] = {0, 0};
    out.count = LayoutCaption(record, text.c_str(), out.glyphs, extent, &out.info);
    record.extentWidth = extent[0];
    record.extentHeight = extent[1];
    return out.count;
}

} // namespace lumenar::playback
