#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumenar::platform {

/// One scalable (TrueType or OpenType) face as the font search reports it.
struct FontFaceInfo
{
    std::string family; ///< The face's family name as installed, e.g. "Liberation Sans".
    int weight = 400;   ///< 100..900 on the classic scale (400 regular, 700 bold).
    bool italic = false;
    int pitchAndFamily =
        0; ///< Classic pitch (1 fixed, 2 variable) | family class (0x10 roman, 0x20 swiss, 0x30 modern).
};

/// The first TrueType/OpenType face answering to `family` (an installed family of that name, or the
/// one fontconfig substitutes for it, such as Liberation Sans for "Arial"). With an empty `family`,
/// the first scalable face of any family, in family-name order. Empty when nothing matches. Any thread.
std::optional<FontFaceInfo> FirstTrueTypeFace(std::string_view family);

} // namespace lumenar::platform
