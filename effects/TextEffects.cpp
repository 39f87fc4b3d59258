#include "effects/TextEffects.h"

#include "effects/TextEffectFramework.h"
#include "effects/TextProcedure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace lumenar::effects {

namespace {

using namespace text;

// Where the caption's origin starts for the fly-in families.
void StartPoint(const TextEffectParams& p, std::int64_t& sx, std::int64_t& sy)
{
    const records::TextRecord& r = *p.text;
    switch (p.direction) {
    case kDirectionBottom: // Text: enters at the top edge, moving down.
        sx = r.x;
        sy = -static_cast<std::int64_t>(r.extentHeight);
        break;
    case kDirectionLeft: // Text: enters at the right edge.
        sx = p.width;
        sy = r.y;
        break;
    case kDirectionTop: // Text: enters at the bottom edge.
        sx = r.x;
        sy = p.height;
        break;
    case kDirectionRight: // Text: enters at the left edge.
        sx = -static_cast<std::int64_t>(r.extentWidth);
        sy = r.y;
        break;
    default:
        // Compatibility: any other code starts at (y, y); no row reaches it, and a caption run with such a
        // code would show this odd start.
        sx = r.y;
        sy = r.y;
        break;
    }
}

// The shuffled start times of the scatter's variant 1 (a permutation of 0..31).
constexpr std::array<int, 32> kScatterOrder = {3,  8, 26, 15, 1, 18, 7,  20, 12, 9,  21, 6,  23, 31, 28, 19,
                                               22, 4, 30, 11, 0, 13, 29, 27, 10, 16, 5,  25, 17, 2,  24, 14};

} // namespace

std::int32_t TextShowAtHalf(std::uint32_t message, void* params)
{
    return TextProcedure(message, params, [](TextEffectState& state, const TextEffectParams& p) {
        if (p.progressNum < p.progressDen / 2)
            return;
        const records::TextRecord& r = *p.text;
        for (int i = 0; i < p.glyphCount; ++i)
            Draw(state, p, i, {std::int64_t{r.x} + p.glyphs[i].gx, std::int64_t{r.y} + p.glyphs[i].gy});
    });
}

std::int32_t TextFadeSweep(std::uint32_t message, void* params)
{
    return TextProcedure(message, params, [](TextEffectState& state, const TextEffectParams& p) {
        const records::TextRecord& r = *p.text;
        const double t = Progress(p);
        const double w = r.extentWidth;
        const double h = r.extentHeight;
        for (int i = 0; i < p.glyphCount; ++i) {
            const records::Glyph& g = p.glyphs[i];
            double place = 0.0;
            // An empty extent puts every glyph at the start of the sweep.
            if (p.direction == kDirectionBottom && h != 0)
                place = g.gy / h;
            else if (p.direction == kDirectionLeft && w != 0)
                place = (w - g.gx) / w;
            else if (p.direction == kDirectionTop && h != 0)
                place = (h - g.gy) / h;
            else if (p.direction == kDirectionRight && w != 0)
                place = g.gx / w;
            const double a = std::clamp((t - 0.7 * place) * 3.3333333333333335, 0.0, 1.0);
            Placement at{std::int64_t{r.x} + g.gx, std::int64_t{r.y} + g.gy};
            at.opacity = static_cast<std::int32_t>(a * 255);
            Draw(state, p, i, at);
        }
    });
}

std::int32_t TextFlyIn(std::uint32_t message, void* params)
{
    return TextProcedure(message, params, [](TextEffectState& state, const TextEffectParams& p) {
        const records::TextRecord& r = *p.text;
        std::int64_t sx = 0, sy = 0;
        StartPoint(p, sx, sy);
        const double t = Progress(p);
        const double e = t * (2 - t);
        const std::int64_t ox = Truncate(static_cast<double>(r.x - sx) * e) + sx;
        const std::int64_t oy = Truncate(static_cast<double>(r.y - sy) * e) + sy;
        for (int i = 0; i < p.glyphCount; ++i)
            Draw(state, p, i, {ox + p.glyphs[i].gx, oy + p.glyphs[i].gy});
    });
}

std::int32_t TextGlyphStream(std::uint32_t message, void* params)
{
    return TextProcedure(message, params, [](TextEffectState& state, const TextEffectParams& p) {
        const records::TextRecord& r = *p.text;
        const std::int64_t n = p.progressNum;
        const std::int64_t d = p.progressDen;
        const auto opacity =
            static_cast<std::int32_t>(std::clamp<std::int64_t>(n * 255 / d, INT32_MIN, INT32_MAX));
        for (int i = 0; i < p.glyphCount; ++i) {
            const std::int64_t px = std::int64_t{r.x} + p.glyphs[i].gx;
            const std::int64_t py = std::int64_t{r.y} + p.glyphs[i].gy;
            Placement at{px, py, opacity};
            switch (p.direction) {
            case kDirectionBottom:
                at.y = std::min(n * (std::int64_t{r.extentHeight} + r.y) / d, py);
                break;
            case kDirectionLeft:
                at.x = std::max((std::int64_t{r.x} - p.width) * n / d + p.width, px);
                break;
            case kDirectionTop:
                at.y = std::max((std::int64_t{r.y} - p.height) * n / d + p.height, py);
                break;
            case kDirectionRight:
                at.x = std::min(n * (std::int64_t{r.extentWidth} + r.x) / d, px);
                break;
            default:
                return; // No row of this family has another direction: nothing to draw.
            }
            Draw(state, p, i, at);
        }
    });
}

std::int32_t TextGlyphScatter(std::uint32_t message, void* params)
{
    return TextProcedure(message, params, [](TextEffectState& state, const TextEffectParams& p) {
        const records::TextRecord& r = *p.text;
        const std::int64_t n = p.progressNum;
        const std::int64_t d = p.progressDen;
        const std::int64_t lastStart = p.glyphs[p.glyphCount - 1].line;
        const std::int64_t clock = p.variant == 1 ? n * 131 / d : (lastStart + 99) * n / d;
        std::int64_t sx = 0, sy = 0;
        StartPoint(p, sx, sy);
        for (int i = 0; i < p.glyphCount; ++i) {
            const records::Glyph& g = p.glyphs[i];
            const std::int64_t start =
                p.variant == 1 ? kScatterOrder[static_cast<std::size_t>(i % 32)] : g.line;
            const std::int64_t l = clock - start;
            if (l < 0)
                continue;
            Placement at{std::int64_t{r.x} + g.gx, std::int64_t{r.y} + g.gy};
            if (l < 100) {
                const double u = static_cast<double>(l) * 0.01;
                const double e = u * (2 - u);
                at.x = Truncate(static_cast<double>(r.x - sx) * e) + g.gx + sx;
                at.y = Truncate(static_cast<double>(r.y - sy) * e) + g.gy + sy;
            }
            Draw(state, p, i, at);
        }
    });
}

std::int32_t TextGlyphGrow(std::uint32_t message, void* params)
{
    return TextProcedure(message, params, [](TextEffectState& state, const TextEffectParams& p) {
        if (p.variant < 0 || p.variant > 4)
            return;
        const records::TextRecord& r = *p.text;
        const double t = Progress(p);
        const double count = p.glyphCount;
        const double span = std::min(1.4 / count, 1.0);
        const auto cx = static_cast<double>(std::int64_t{r.x} + r.extentWidth / 2);
        const auto cy = static_cast<double>(std::int64_t{r.y} + r.extentHeight / 2);
        for (int i = 0; i < p.glyphCount; ++i) {
            const records::Glyph& g = p.glyphs[i];
            const double a = std::clamp((t - (i / count) * (1 - span)) / span, 0.0, 1.0);
            Placement at{std::int64_t{r.x} + g.gx, std::int64_t{r.y} + g.gy};
            at.opacity = static_cast<std::int32_t>(a * 255);
            if (at.opacity == 0)
                continue;
            const double size = p.variant <= 2 ? a : (1 - a) * 1.2999999999999998 + 1;
            if (p.variant != 0)
                at.scaleX = at.scaleY = static_cast<std::int32_t>(Truncate(size * 65536));
            if (p.variant == 2 || p.variant == 4) {
                at.x = Truncate((static_cast<double>(r.x) + g.gx - cx) * size + cx);
                at.y = Truncate((static_cast<double>(r.y) + g.gy - cy) * size + cy);
            }
            Draw(state, p, i, at);
        }
    });
}

} // namespace lumenar::effects
