#pragma once

#include "platform/MessageBox.h"

namespace lumenar::platform {

/// The one message-box helper. The text is string `textId` of the string table (or `textFormat` when
/// the table has no such id), formatted printf-style with the remaining arguments; the title is string
/// `titleId` (else `titleText`, else none, so the sink's default title shows). Shows it through the
/// current MessageSink with the given owner and style and returns the chosen button. Any thread.
int ReportBox(Window* owner, unsigned style, int titleId, const char* titleText, int textId,
              const char* textFormat, ...);

} // namespace lumenar::platform
