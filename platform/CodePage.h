#pragma once

#include "base/Result.h"

#include <cstdint>
#include <optional>
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

/// Converts UTF-8 text to `codePage`. Fails with a message that names the first character the code
/// page cannot hold, or the first bytes that are not UTF-8; nothing is ever replaced silently.
base::Result<std::string> FromUtf8(std::string_view utf8, int codePage);

/// The character set a caption's font records for the code page its text is written in (0 for 1252),
/// so that a film says which page its captions use. Empty for a page no character set stands for.
std::optional<std::uint8_t> CharSetOfCodePage(int codePage);

/// The code page a font's character set stands for, when that page is one we convert; empty for the
/// ANSI and default sets (the text is in the system's page) and for sets we do not know.
std::optional<int> CodePageOfCharSet(std::uint8_t charSet);

} // namespace lumenar::platform
