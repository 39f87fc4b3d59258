#pragma once

#include "platform/Font.h"
#include "records/TextRecord.h"

namespace lumenar::records {

/// Copies the logical font of the first TrueType face of the family "Arial" (or fontconfig's stand-in
/// for it, Liberation Sans on our machines) into `font`; when there is none, the first TrueType face
/// of any family. Returns 1 when a font was copied, 0 otherwise (then `font` is left as it was).
int FindCaptionFont(LogFont* font);

/// The film's default caption style: the caption font of FindCaptionFont (the font bytes stay zero when
/// there is none) at character height 48, white, line spacing 100, left-aligned, with a shadow. Every
/// new film starts with it, and a caption drawn outside a film starts from it.
TextRecord DefaultCaptionStyle();

/// Metrics measured at double size brought back to the caption's size: height, ascent, descent,
/// internal leading, average and maximum character width and overhang halved toward zero; external
/// leading and weight stay as measured. Caption layout and the text effects' sheets both measure this
/// way, so a glyph's cell and its laid-out place agree.
platform::TextMetrics HalvedMetrics(platform::TextMetrics doubleSize);

/// The font request of a caption's logical font, its height multiplied by `heightFactor` (2 for the
/// double-size measuring and glyph sheets). Heights beyond any screen are cut to 8192 pixels.
platform::FontRequest CaptionFontRequest(const LogFont& font, int heightFactor);

/// The code page a caption's text and face name are written in: the one its font's character set
/// names, or the system's (ActiveCodePage) for the ANSI set and sets we do not convert.
int CaptionCodePage(const LogFont& font);

} // namespace lumenar::records
