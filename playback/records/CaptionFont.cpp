#include "playback/records/CaptionFont.h"

#include "platform/FontCatalog.h"

#include <cstring>

namespace lumenar::records {

int FindCaptionFont(LogFont* font)
{
    auto face = platform::FirstTrueTypeFace("Arial");
    if (!face)
        face = platform::FirstTrueTypeFace("");
    if (!face || font == nullptr)
        return 0;
    // The record an enumeration of scalable faces reports: a nominal cell of 16 by 7 pixels, stroke
    // precision, draft quality, the face's own weight, slant and family class.
    LogFont out{};
    out.height = 16;
    out.width = 7;
    out.weight = face->weight;
    out.italic = face->italic ? 1 : 0;
    out.charSet = 0;
    out.outPrecision = 3;
    out.clipPrecision = 2;
    out.quality = 1;
    out.pitchAndFamily = static_cast<std::uint8_t>(face->pitchAndFamily);
    std::strncpy(out.faceName, face->family.c_str(), sizeof out.faceName - 1);
    std::memcpy(font, &out, sizeof out);
    return 1;
}

} // namespace lumenar::records
