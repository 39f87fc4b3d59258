#include "effects/TextRevealEffects.h"

#include "effects/Random.h"
#include "effects/TextEffectFramework.h"
#include "effects/TextProcedure.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace lumenar::effects {

namespace {

using namespace text;

// Wraps a render that takes the progress t (0..1) so that the last frame shows the caption exactly at rest,
// whatever the motion's rounding: every row must end as the plain caption does.
template <typename Render> auto Settled(Render render)
{
    return [render](TextEffectState& state, const TextEffectParams& p) {
        if (p.progressNum >= p.progressDen) {
            for (int i = 0; i < p.glyphCount; ++i)
                Draw(state, p, i, RestingPlace(p, i));
            return;
        }
        render(state, p, std::clamp(Progress(p), 0.0, 1.0));
    };
}

// How far glyph `rank` of `count` is through its own part of the animation (0..1), when each glyph takes
// `span` of the whole time and the starts are spread evenly so that the last one finishes at the end.
double Turn(double t, int rank, int count, double span)
{
    const double start = count > 1 ? static_cast<double>(rank) / (count - 1) * (1 - span) : 0.0;
    return std::clamp((t - start) / span, 0.0, 1.0);
}

std::int32_t Opacity(double a)
{
    return static_cast<std::int32_t>(std::clamp(a, 0.0, 1.0) * 255);
}

std::int32_t Scale(double factor)
{
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(Truncate(factor * kUnitScale), -(1 << 24), 1 << 24));
}

// Sets the scales and moves the origin so that the glyph's cell keeps its centre where it is at its own size
// (DrawGlyph scales about the glyph's origin).
void ScaleAboutCentre(const TextEffectState& state, int i, Placement& at, double scaleX, double scaleY)
{
    at.scaleX = Scale(scaleX);
    at.scaleY = Scale(scaleY);
    if (static_cast<std::size_t>(i) >= state.glyphAdvances.size())
        return;
    // Sheet samples are at double size.
    const double halfAdvance = state.glyphAdvances[static_cast<std::size_t>(i)] / 4.0;
    const double centreBelowBaseline = (state.glyphCellHeight / 2.0 - state.sheetAscent) / 2.0;
    at.x += Truncate(halfAdvance * (1 - scaleX));
    at.y += Truncate(centreBelowBaseline * (1 - scaleY));
}

// A glyph drawn in another colour or within a band; otherwise as Draw.
void DrawWith(TextEffectState& state, const TextEffectParams& p, int i, const Placement& at,
              std::uint32_t colour, const PictureBand* band)
{
    DrawGlyph(state, Saturate(at.x), Saturate(at.y), p.glyphs[i].code, colour, at.opacity, p.text->shadow, i,
              at.scaleX, at.scaleY, at.angle, band);
}

// The colour (0xBBGGRR) moved a fraction k of the way to white.
std::uint32_t Lighter(std::uint32_t colour, double k)
{
    std::uint32_t out = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        const auto c = static_cast<int>((colour >> shift) & 0xFF);
        out |= static_cast<std::uint32_t>(c + static_cast<int>((255 - c) * k)) << shift;
    }
    return out;
}

// A glyph's height for motions measured in glyphs; the font's when the layout gave none.
double GlyphHeight(const TextEffectState& state, const records::Glyph& g)
{
    return g.ch > 0 ? g.ch : std::max(1, std::abs(state.metrics.height));
}

// A fall that lands with three ever smaller bounces: 0 at the start, exactly 1 at the end, never above 1.
double Bounce(double u)
{
    constexpr double k = 7.5625;
    constexpr double d = 2.75;
    if (u < 1 / d)
        return k * u * u;
    if (u < 2 / d) {
        u -= 1.5 / d;
        return k * u * u + 0.75;
    }
    if (u < 2.5 / d) {
        u -= 2.25 / d;
        return k * u * u + 0.9375;
    }
    u -= 2.625 / d;
    return std::min(1.0, k * u * u + 0.984375);
}

// The random fading order: effectData[i] is glyph i's turn.
void DrawRandomTurns(TextEffectState& state, const TextEffectParams& p)
{
    state.effectData.clear();
    if (p.variant != 2 || p.glyphs == nullptr || p.glyphCount <= 0)
        return;
    std::vector<std::int32_t> order(static_cast<std::size_t>(p.glyphCount));
    std::iota(order.begin(), order.end(), 0);
    for (std::size_t k = order.size() - 1; k > 0; --k)
        std::swap(order[k], order[static_cast<std::size_t>(Rand()) % (k + 1)]);
    state.effectData.assign(order.size(), 0);
    for (std::size_t turn = 0; turn < order.size(); ++turn)
        state.effectData[static_cast<std::size_t>(order[turn])] = static_cast<std::int32_t>(turn);
}

// A fade in the framework's 50 steps.
std::int32_t Stepped(double a)
{
    return FadeRamp()[static_cast<std::size_t>(std::clamp(a, 0.0, 1.0) * 49)];
}

} // namespace

std::int32_t TextEffect05(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        const int count = p.glyphCount;
        const bool random = state.effectData.size() == static_cast<std::size_t>(count);
        for (int i = 0; i < count; ++i) {
            Placement at = RestingPlace(p, i);
            switch (p.variant) {
            case 1: // All together, done by half time.
                at.opacity = Stepped(2 * t);
                break;
            case 0: // All together, slowly: faint for long, gathering towards the end.
                at.opacity = Stepped(t * t);
                break;
            case 2: // One by one in the order drawn at init, overlapping.
                at.opacity =
                    Stepped(Turn(t, random ? state.effectData[static_cast<std::size_t>(i)] : i, count, 0.3));
                break;
            case 3: // One after another in reading order, each in its own turn.
                at.opacity = Stepped(Turn(t, i, count, 1.0 / count));
                break;
            default:
                return; // No row has another variant: the caption shows only at the end.
            }
            if (at.opacity > 0)
                Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render), DrawRandomTurns);
}

std::int32_t TextEffect13(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        // The last glyph is typed at nine tenths of the time, so the whole caption is read a while.
        const double count = p.glyphCount;
        const double strike = std::min(0.9 / count, 0.08);
        for (int i = 0; i < p.glyphCount; ++i) {
            const double typedAt = 0.9 * i / count;
            if (t < typedAt)
                break;
            Placement at = RestingPlace(p, i);
            const double s = (t - typedAt) / strike;
            if (s >= 1) {
                Draw(state, p, i, at);
                continue;
            }
            // The key strikes: the glyph lands a little larger and lighter and settles at once.
            ScaleAboutCentre(state, i, at, 1 + 0.35 * (1 - s), 1 + 0.35 * (1 - s));
            DrawWith(state, p, i, at, Lighter(p.text->colour, 0.6 * (1 - s)), nullptr);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect14(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        for (int i = 0; i < p.glyphCount; ++i) {
            const double a = Turn(t, i, p.glyphCount, 0.3);
            if (a <= 0)
                continue;
            Placement at = RestingPlace(p, i);
            // From wholly above the picture's top edge, falling faster and faster.
            const double height = GlyphHeight(state, p.glyphs[i]);
            const double fall = std::max(static_cast<double>(at.y) + height + 8, height);
            at.y -= Truncate(fall * (1 - a * a));
            Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect23(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        const records::TextRecord& r = *p.text;
        const std::int64_t width = std::max(r.extentWidth, 0);
        const std::int64_t height = std::max(r.extentHeight, 0);
        // Room for the shadow (its offset and soft edge) beyond the laid-out extent, so the band has passed
        // all ink before the end.
        const double margin = std::abs(state.metrics.height) / 36.0 + 6;
        PictureBand band{0, 0, p.width, p.height};
        if (p.direction == kDirectionBothVerticalEdges) {
            const std::int64_t centre = r.x + width / 2;
            const std::int64_t half = Truncate((static_cast<double>(width) / 2 + margin) * t);
            band.left = Saturate(centre - half);
            band.right = Saturate(centre + half);
        } else if (p.direction == kDirectionBothHorizontalEdges) {
            const std::int64_t centre = r.y + height / 2;
            const std::int64_t half = Truncate((static_cast<double>(height) / 2 + margin) * t);
            band.top = Saturate(centre - half);
            band.bottom = Saturate(centre + half);
        } else {
            return; // No row has another direction: the caption shows only at the end.
        }
        for (int i = 0; i < p.glyphCount; ++i)
            DrawWith(state, p, i, RestingPlace(p, i), r.colour, &band);
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect25(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        for (int i = 0; i < p.glyphCount; ++i) {
            const double a = Turn(t, i, p.glyphCount, 0.35);
            if (a <= 0)
                continue;
            const double e = 1 - (1 - a) * (1 - a);
            Placement at = RestingPlace(p, i);
            ScaleAboutCentre(state, i, at, e, e);
            at.angle = -static_cast<std::int32_t>(Truncate((1 - e) * 3600));
            at.opacity = Opacity(2 * a);
            Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect26(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        if (p.variant != 0 && p.variant != 1)
            return; // No row has another variant: the caption shows only at the end.
        const records::TextRecord& r = *p.text;
        const double rest = (1 - t) * (1 - t);
        const double e = 1 - rest * rest; // Fast at first, gently into place.
        const double size = p.variant == 0 ? 1 + 3 * (1 - e) : e;
        const double cx = static_cast<double>(r.x) + std::max(r.extentWidth, 0) / 2;
        const double cy = static_cast<double>(r.y) + std::max(r.extentHeight, 0) / 2;
        for (int i = 0; i < p.glyphCount; ++i) {
            Placement at = RestingPlace(p, i);
            // The whole caption as one body: each origin moves about the caption's centre with the size.
            at.x = Truncate((static_cast<double>(at.x) - cx) * size + cx);
            at.y = Truncate((static_cast<double>(at.y) - cy) * size + cy);
            at.scaleX = at.scaleY = Scale(size);
            at.opacity = Opacity(t / 0.6);
            Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect28(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        for (int i = 0; i < p.glyphCount; ++i) {
            const double a = Turn(t, i, p.glyphCount, 0.45);
            if (a <= 0)
                continue;
            Placement at = RestingPlace(p, i);
            at.y -= Truncate(2.5 * GlyphHeight(state, p.glyphs[i]) * (1 - Bounce(a)));
            Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect32(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        for (int i = 0; i < p.glyphCount; ++i) {
            const double a = Turn(t, i, p.glyphCount, 0.4);
            if (a <= 0)
                continue;
            // Three quarters of a turn seen from the front: 0, -1 (the back, mirrored), 0, then 1.
            const double face = -std::sin(1.5 * std::numbers::pi * a);
            Placement at = RestingPlace(p, i);
            ScaleAboutCentre(state, i, at, face, 1);
            at.opacity = face < 0 ? 150 : 255;
            Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

std::int32_t TextEffect35(std::uint32_t message, void* params)
{
    auto render = [](TextEffectState& state, const TextEffectParams& p, double t) {
        const double width = p.text->extentWidth;
        for (int i = 0; i < p.glyphCount; ++i) {
            const records::Glyph& g = p.glyphs[i];
            // The wave's front reaches a glyph by its centre's place across the caption.
            const double across = width > 0 ? std::clamp((g.gx + g.cw / 2.0) / width, 0.0, 1.0) : 0.0;
            const double a = std::clamp((t - 0.6 * across) / 0.4, 0.0, 1.0);
            if (a <= 0)
                continue;
            Placement at = RestingPlace(p, i);
            // From below its place, up past it, down a little, settled: a damped swing.
            const double swing = (1 - a) * (1 - a) * std::cos(3 * std::numbers::pi * a);
            at.y += Truncate(0.9 * GlyphHeight(state, g) * swing);
            at.opacity = Opacity(2.5 * a);
            Draw(state, p, i, at);
        }
    };
    return TextProcedure(message, params, Settled(render));
}

} // namespace lumenar::effects
