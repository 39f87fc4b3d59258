#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lumenar::platform {

/// The code page films are written in unless the user picks another.
inline constexpr int kDefaultCodePage = 1252;

/// The code page captions are laid out and drawn in (the film's). Defaults to 1252. Any thread.
int ActiveCodePage();
void SetActiveCodePage(int codePage);

/// True for the code pages we can convert (single-byte Windows pages and 932, 936, 949, 950).
bool IsSupportedCodePage(int codePage);

/// True when `byte` starts a two-byte character in `codePage` (only 932, 936, 949 and 950 have any).
bool IsLeadByte(int codePage, std::uint8_t byte);

/// Converts text in `codePage` to UTF-8. A byte sequence the code page does not define becomes U+FFFD;
/// conversion never fails. Any thread.
std::string ToUtf8(std::string_view bytes, int codePage = kDefaultCodePage);

/// Converts one character code (a byte, or lead × 256 + trail) to its Unicode code point; U+FFFD when
/// the code page does not define it.
char32_t CharacterToUnicode(std::uint16_t code, int codePage = kDefaultCodePage);

} // namespace lumenar::platform
