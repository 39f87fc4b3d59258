#include "base/StrCat.h"

#include <cstdio>

namespace lumenar::base {

std::string FormatPrintfV(const char* format, va_list args)
{
    va_list again;
    va_copy(again, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int size = std::vsnprintf(nullptr, 0, format, args);
    std::string text;
    if (size > 0) {
        text.resize(static_cast<std::size_t>(size) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        text.resize(static_cast<std::size_t>(size));
    }
#pragma GCC diagnostic pop
    va_end(again);
    return text;
}

std::string FormatPrintf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = FormatPrintfV(format, args);
    va_end(args);
    return text;
}

} // namespace lumenar::base
