#include "platform/ReportBox.h"

#include "platform/StringTable.h"

#include "base/StrCat.h"

#include <cstdarg>
#include <string>

namespace lumenar::platform {

int ReportBox(Window* owner, unsigned style, int titleId, const char* titleText, int textId,
              const char* textFormat, ...)
{
    const char* format = LoadStringId(textId);
    if (format == nullptr)
        format = textFormat != nullptr ? textFormat : "";
    const char* title = LoadStringId(titleId);
    if (title == nullptr)
        title = titleText != nullptr ? titleText : "";

    va_list args;
    va_start(args, textFormat);
    // The format comes from the string table or the caller's literal, never from input.
    const std::string text = base::FormatPrintfV(format, args);
    va_end(args);
    return CurrentMessageSink().Show(owner, style, title, text);
}

} // namespace lumenar::platform
