#pragma once

#include "platform/Font.h"
#include "records/TextRecord.h"

namespace lumenar::records {

/// Copies the logical font of the first TrueType face of the family "Arial" (or fontconfig's stand-in
/// for it, Liberation Sans on our machines) into `font`; when there is none, the first TrueType face
/// of any family. Returns 1 when a font was copied, 0 otherwise (then `font` is left as it was).
int FindCaptionFont(LogFont* font);

/// The font request of a caption's logical font, its height multiplied by `heightFactor` (2 for the
/// double-size measuring and glyph sheets). Heights beyond any screen are cut to 8192 pixels.
platform::FontRequest CaptionFontRequest(const LogFont& font, int heightFactor);

} // namespace lumenar::records
