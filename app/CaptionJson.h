#pragma once

#include "platform/Font.h"
#include "records/Glyph.h"

#include <cstdint>
#include <span>
#include <string>

namespace lumenar::app {

/// A caption's layout as one JSON object, in this key order (outside checks read it):
/// {"extent":[width,height],"ascent":N,"descent":N,"height":N,
///  "glyphs":[{"code":N,"line":N,"gx":N,"gy":N,"cw":N,"ch":N},...]}
/// `metrics` are the ones the layout used (halved from its double-size measuring). No final newline.
std::string CaptionLayoutJson(std::int32_t extentWidth, std::int32_t extentHeight,
                              const platform::TextMetrics& metrics, std::span<const records::Glyph> glyphs);

} // namespace lumenar::app
