#pragma once

#include <cstdarg>
#include <sstream>
#include <string>

namespace lumenar::base {

/// Concatenates the textual forms of its arguments (as an ostream prints them). Small integer
/// types print as numbers, not characters.
template <typename... Args> std::string StrCat(const Args&... args)
{
    std::ostringstream out;
    auto put = [&out](const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char>)
            out << static_cast<int>(value);
        else
            out << value;
    };
    (put(args), ...);
    return out.str();
}

/// Formats like snprintf into a std::string. The format comes from our own code or the string table.
std::string FormatPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// FormatPrintf with the arguments already gathered; `args` is consumed.
std::string FormatPrintfV(const char* format, va_list args);

} // namespace lumenar::base
