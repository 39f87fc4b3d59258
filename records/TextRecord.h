#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace lumenar::records {

/// The 60-byte logical-font record stored in captions. Heights and widths are in pixels of an
/// 800-pixel-wide frame.
struct LogFont
{
    std::int32_t height;         ///< 0: negative = character height, positive = cell height, 0 = default.
    std::int32_t width;          ///< 4: average character width; 0 lets the font choose.
    std::int32_t escapement;     ///< 8: tenths of a degree.
    std::int32_t orientation;    ///< 12: tenths of a degree.
    std::int32_t weight;         ///< 16: 0..1000, 400 regular, 700 bold.
    std::uint8_t italic;         ///< 20
    std::uint8_t underline;      ///< 21
    std::uint8_t strikeOut;      ///< 22
    std::uint8_t charSet;        ///< 23
    std::uint8_t outPrecision;   ///< 24
    std::uint8_t clipPrecision;  ///< 25
    std::uint8_t quality;        ///< 26
    std::uint8_t pitchAndFamily; ///< 27
    char faceName[32];           ///< 28: NUL-terminated in the film's code page.
};
static_assert(sizeof(LogFont) == 60);
static_assert(std::is_trivially_copyable_v<LogFont>);
static_assert(offsetof(LogFont, weight) == 16);
static_assert(offsetof(LogFont, italic) == 20);
static_assert(offsetof(LogFont, pitchAndFamily) == 27);
static_assert(offsetof(LogFont, faceName) == 28);

/// The 96-byte caption record, stored verbatim in the film for every caption and as the film's
/// default caption style. Positions and heights are in pixels of an 800-pixel-wide frame.
struct TextRecord
{
    std::int32_t x;            ///< 0: left edge of the caption.
    std::int32_t y;            ///< 4: top edge of the caption.
    LogFont font;              ///< 8: the caption's font.
    std::uint32_t colour;      ///< 68: text colour, red in the low byte.
    std::int32_t lineSpacing;  ///< 72: baseline distance in percent of the font's height.
    std::int32_t alignment;    ///< 76: 0 left, 1 centre, 2 right; other non-zero values centre.
    std::int32_t shadow;       ///< 80: non-zero draws a drop shadow under every glyph.
    std::int32_t extentWidth;  ///< 84: written by the layout.
    std::int32_t extentHeight; ///< 88: written by the layout.
    /// 92: the running text effect's state word. In memory the state is kept beside the record (a
    /// pointer does not fit in 32 bits); the stored word travels untouched so the record round-trips.
    std::uint32_t effectState;
};
static_assert(sizeof(TextRecord) == 96);
static_assert(std::is_trivially_copyable_v<TextRecord>);
static_assert(offsetof(TextRecord, font) == 8);
static_assert(offsetof(TextRecord, colour) == 68);
static_assert(offsetof(TextRecord, lineSpacing) == 72);
static_assert(offsetof(TextRecord, alignment) == 76);
static_assert(offsetof(TextRecord, shadow) == 80);
static_assert(offsetof(TextRecord, extentWidth) == 84);
static_assert(offsetof(TextRecord, effectState) == 92);

} // namespace lumenar::records
