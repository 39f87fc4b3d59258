#include "app/CaptionJson.h"

#include "base/StrCat.h"

namespace lumenar::app {

std::string CaptionLayoutJson(std::int32_t extentWidth, std::int32_t extentHeight,
                              const platform::TextMetrics& metrics, std::span<const records::Glyph> glyphs)
{
    std::string out =
        base::StrCat("{\"extent\":[", extentWidth, ",", extentHeight, "],\"ascent\":", metrics.ascent,
                     ",\"descent\":", metrics.descent, ",\"height\":", metrics.height, ",\"glyphs\":[");
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        const records::Glyph& g = glyphs[i];
        out += base::StrCat(i == 0 ? "" : ",", "{\"code\":", g.code, ",\"line\":", g.line, ",\"gx\":", g.gx,
                            ",\"gy\":", g.gy, ",\"cw\":", g.cw, ",\"ch\":", g.ch, "}");
    }
    out += "]}";
    return out;
}

} // namespace lumenar::app
