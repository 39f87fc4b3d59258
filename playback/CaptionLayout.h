#pragma once

#include "platform/Font.h"
#include "records/CaptionFont.h"
#include "records/Glyph.h"
#include "records/TextRecord.h"

#include <cstdint>
#include <span>

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

} // namespace lumenar::playback
