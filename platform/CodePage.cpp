#include "platform/CodePage.h"

#include <array>
#include <utility>

namespace lumenar::platform {

namespace {

// The font character sets that stand for one code page each.
constexpr std::array<std::pair<std::uint8_t, int>, 14> kCharSets{{
    {0, 1252},
    {128, 932},
    {129, 949},
    {134, 936},
    {136, 950},
    {161, 1253},
    {162, 1254},
    {163, 1258},
    {177, 1255},
    {178, 1256},
    {186, 1257},
    {204, 1251},
    {222, 874},
    {238, 1250},
}};

} // namespace

std::optional<std::uint8_t> CharSetOfCodePage(int codePage)
{
    for (const auto& [charSet, page] : kCharSets)
        if (page == codePage)
            return charSet;
    return std::nullopt;
}

std::optional<int> CodePageOfCharSet(std::uint8_t charSet)
{
    // The ANSI set means "the system's page", whatever the film was written on.
    if (charSet == 0)
        return std::nullopt;
    for (const auto& [set, page] : kCharSets)
        if (set == charSet && IsSupportedCodePage(page))
            return page;
    return std::nullopt;
}

} // namespace lumenar::platform
