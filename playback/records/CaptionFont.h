#pragma once

#include "playback/records/TextRecord.h"

namespace lumenar::records {

/// Copies the logical font of the first TrueType face of the family "Arial" (or fontconfig's stand-in
/// for it, Liberation Sans on our machines) into `font`; when there is none, the first TrueType face
/// of any family. Returns 1 when a font was copied, 0 otherwise (then `font` is left as it was).
int FindCaptionFont(LogFont* font);

} // namespace lumenar::records
