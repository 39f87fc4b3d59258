#pragma once

#include "platform/Font.h"
#include "records/CaptionFont.h"
#include "records/Glyph.h"
#include "records/TextRecord.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace lumenar::playback {

/// What a layout measured besides the glyphs: the font's metrics at the caption's size (measured at
/// double size and halved) and the caption's extent.
struct CaptionLayoutInfo
{
    platform::TextMetrics metrics;
    std::int32_t width = 0;  ///< The widest line; the smallest 32-bit integer when there is no line.
    std::int32_t height = 0; ///< Baseline of the last line plus the descent.
};

/// Lays a caption out into glyphs: one per character (a byte, or a lead and trail byte of the active
/// code page), lines broken at CR LF, baselines `lineSpacing` percent of the font height apart, each
/// line aligned (0 left, 2 right, any other non-zero value centred). Measures at double size and halves,
/// for half-pixel-accurate advances. `text` ends at its first zero byte. Returns the glyph count (0 when
/// the font cannot be made) and stores width and height in `extent` when it is not null. At most
/// `glyphs.size()` glyphs are written. Playback thread only.
int LayoutCaption(const records::TextRecord& record, const char* text, std::span<records::Glyph> glyphs,
                  std::int32_t* extent, CaptionLayoutInfo* info = nullptr);

using records::CaptionFontRequest;

/// The factor a caption's position and font height are scaled by for a frame `frameWidth` pixels wide:
/// captions are authored for an 800-pixel-wide frame (frame width × 0.00125, as a 32-bit float).
float CaptionScale(int frameWidth);

/// One caption made ready for its text effect: the scaled record with its extent, and its glyphs.
struct PreparedCaption
{
    records::TextRecord record{};
    std::array<records::Glyph, records::kGlyphBufferGlyphs> glyphs{};
    int count = 0;
    CaptionLayoutInfo info;
};

/// The one way a caption is set up for drawing, in the player and in `lumenar caption`: copies `style`,
/// multiplies its x, y and font height by `scale` (truncating toward zero), lays `text` out and writes
/// the laid-out width and height into the copy's `extentWidth` and `extentHeight`, which the text
/// effects read. The copy's effect state word is cleared. Returns the glyph count (0 when no font could
/// be made). Playback thread (or any thread that owns `out`).
int PrepareCaption(const records::TextRecord& style, const std::string& text, float scale,
                   PreparedCaption& out);

} // namespace lumenar::playback
