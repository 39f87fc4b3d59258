#include "effects/TextMotionEffects.h"

#include "effects/Random.h"
#include "effects/TextEffectFramework.h"
#include "effects/TextProcedure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <utility>
#include <vector>

namespace lumenar::effects {

namespace {

using namespace text;

constexpr double kPi = std::numbers::pi;

// A glyph's own progress when glyphs start one after another: `place` runs from 0 (first to start) to 1
// (last), and each glyph takes `span` of the animation, so the last one lands exactly at the end.
double Staggered(double t, double place, double span)
{
    return std::clamp((t - place * (1 - span)) / span, 0.0, 1.0);
}

// The glyph's place in reading order, 0 to 1.
double ReadingPlace(const TextEffectParams& p, int i)
{
    return p.glyphCount > 1 ? static_cast<double>(i) / (p.glyphCount - 1) : 0.0;
}

// Each glyph's place across the caption, from the leftmost glyph (0) to the rightmost (1), in 1/65536,
// fixed at init so a frame need not look for the caption's ends.
constexpr double kAcrossUnit = 65536;

void PrepareAcross(TextEffectState& s, const TextEffectParams& block)
{
    s.effectData.clear();
    if (block.glyphs == nullptr || block.glyphCount <= 0)
        return;
    const auto [least, most] =
        std::minmax_element(block.glyphs, block.glyphs + block.glyphCount,
                            [](const records::Glyph& a, const records::Glyph& b) { return a.gx < b.gx; });
    const double span = static_cast<double>(most->gx) - least->gx;
    for (int i = 0; i < block.glyphCount; ++i) {
        const double place = span > 0 ? (static_cast<double>(block.glyphs[i].gx) - least->gx) / span : 0.0;
        s.effectData.push_back(static_cast<std::int32_t>(place * kAcrossUnit));
    }
}

double AcrossPlace(const TextEffectState& s, int i)
{
    const auto at = static_cast<std::size_t>(i);
    return at < s.effectData.size() ? s.effectData[at] / kAcrossUnit : 0.0;
}

double EaseOut(double a)
{
    return a * (2 - a);
}

std::int32_t Opacity(double a)
{
    return static_cast<std::int32_t>(std::clamp(a, 0.0, 1.0) * 255);
}

std::int32_t Fixed(double scale)
{
    return Saturate(Truncate(scale * kUnitScale));
}

std::int32_t Tenths(double degrees)
{
    return Saturate(Truncate(degrees * 10));
}

std::int64_t Round(double value)
{
    return Truncate(std::floor(value + 0.5));
}

// The caption's line height in pixels, never below 1.
double LineHeight(const TextEffectState& s)
{
    return std::max(1, std::abs(s.metrics.height));
}

// Where DrawGlyph turns glyph i, counted from its origin in pixels, at scales (sx, sy): the centre of
// its cell (advance × cell height at double size).
struct Offset
{
    double x = 0;
    double y = 0;
};

Offset CellCentre(const TextEffectState& s, int i, double sx, double sy)
{
    const auto at = static_cast<std::size_t>(i);
    const double advance = at < s.glyphAdvances.size() ? s.glyphAdvances[at] : 0;
    return {advance / 4 * sx, (s.glyphCellHeight / 2.0 - s.sheetAscent) / 2 * sy};
}

// Glyph i at scales (sx, sy) and `angle`, placed so that its cell's centre stays where it rests.
Placement AboutCentre(const TextEffectState& s, const TextEffectParams& p, int i, double sx, double sy,
                      std::int32_t angle = 0)
{
    Placement at = RestingPlace(p, i);
    const Offset rest = CellCentre(s, i, 1, 1);
    const Offset now = CellCentre(s, i, sx, sy);
    at.x += Round(rest.x - now.x);
    at.y += Round(rest.y - now.y);
    at.scaleX = Fixed(sx);
    at.scaleY = Fixed(sy);
    at.angle = angle;
    return at;
}

// The shadow's displacement, as DrawGlyph offsets it.
std::int64_t ShadowOffset(const TextEffectState& s)
{
    return std::abs(s.metrics.height) / 36 + 3;
}

// Draws every glyph at rest at full progress (exactly what the whole caption leaves), otherwise
// glyph(state, block, i, t) for each glyph with t in 0..1.
template <typename Glyph> auto EachGlyph(Glyph glyph)
{
    return [glyph](TextEffectState& state, const TextEffectParams& p) {
        if (p.progressNum >= p.progressDen) {
            for (int i = 0; i < p.glyphCount; ++i)
                Draw(state, p, i, RestingPlace(p, i));
            return;
        }
        const double t = std::clamp(Progress(p), 0.0, 1.0);
        for (int i = 0; i < p.glyphCount; ++i)
            glyph(state, p, i, t);
    };
}

// Soft cells for a caption: the sharp coverage and blurs up to a seventh of the cell's height, so a small
// font blurs as much as a large one in proportion.
void PrepareSoftCells(TextEffectState& state, const TextEffectParams& block)
{
    const int strongest = std::clamp(state.glyphCellHeight / 7, 3, 32);
    std::array<std::int32_t, 4> radii = {0, std::max(1, strongest / 6), std::max(2, strongest * 2 / 5),
                                         strongest};
    for (std::size_t l = 1; l < radii.size(); ++l)
        radii[l] = std::max(radii[l], radii[l - 1] + 1);
    (void)BuildSoftCells(state, block, radii);
}

// A colour (0xBBGGRR) moved `towardsWhite` (0..1) of the way to white.
std::uint32_t Lighter(std::uint32_t colour, double towardsWhite)
{
    std::uint32_t out = 0;
    for (int shift : {0, 8, 16}) {
        const double channel = (colour >> shift) & 255;
        const auto lit =
            static_cast<std::uint32_t>(channel + (255 - channel) * std::clamp(towardsWhite, 0.0, 1.0));
        out |= std::min<std::uint32_t>(lit, 255) << shift;
    }
    return out;
}

// A star of light at (cx, cy) in picture pixels from the top: four rays of `radius` pixels along the
// axes and four half as long on the diagonals, brightest (`intensity` of the way to white) in the middle.
void DrawStar(TextEffectState& s, std::int64_t cx, std::int64_t cy, int radius, int intensity)
{
    if (radius <= 0 || intensity <= 0 || s.dcBits == nullptr)
        return;
    auto light = [&](std::int64_t x, std::int64_t y, int weight) {
        if (x < 0 || y < 0 || x >= s.width || y >= s.height || weight <= 0)
            return;
        std::uint8_t* out =
            s.dcBits + (static_cast<std::size_t>(s.height - 1 - y) * static_cast<std::size_t>(s.width) +
                        static_cast<std::size_t>(x)) *
                           4;
        for (int c = 0; c < 3; ++c)
            out[c] = static_cast<std::uint8_t>(out[c] + (((255 - out[c]) * weight) >> 8));
    };
    light(cx, cy, intensity);
    for (int k = 1; k <= radius; ++k) {
        const int weight = intensity * (radius + 1 - k) / (radius + 1);
        // The long rays are three pixels wide, their sides half as bright, so the star reads at a glance.
        for (const auto& [across, share] : {std::pair{0, 2}, {-1, 1}, {1, 1}}) {
            const int w = weight * share / 2;
            light(cx + k, cy + across, w);
            light(cx - k, cy + across, w);
            light(cx + across, cy + k, w);
            light(cx + across, cy - k, w);
        }
        if (2 * k <= radius) {
            const int diagonal = intensity * (radius + 1 - 2 * k) / (radius + 1);
            light(cx + k, cy + k, diagonal);
            light(cx - k, cy + k, diagonal);
            light(cx + k, cy - k, diagonal);
            light(cx - k, cy - k, diagonal);
        }
    }
}

} // namespace

std::int32_t TextEffect36(std::uint32_t message, void* params)
{
    return TextProcedure(
        message, params, EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
            if (p.variant != 0 && p.variant != 1)
                return;
            const double a = Staggered(t, ReadingPlace(p, i), 0.4);
            if (a <= 0)
                return;
            const double e = EaseOut(a);
            Placement at = p.variant == 0 ? AboutCentre(s, p, i, 1, e) : AboutCentre(s, p, i, e, 1);
            at.opacity = Opacity(a * 4);
            Draw(s, p, i, at);
        }));
}

std::int32_t TextEffect38(std::uint32_t message, void* params)
{
    return TextProcedure(message, params,
                         EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
                             // Where each glyph starts, as a step from its place: the names say which way the
                             // letters move (rise, fall, slide left, slide right).
                             double dx = 0, dy = 0;
                             switch (p.direction) {
                             case kDirectionBottom: // Rise in: from below.
                                 dy = 1;
                                 break;
                             case kDirectionTop: // Fall in: from above.
                                 dy = -1;
                                 break;
                             case kDirectionRight: // Slide in left: from the right.
                                 dx = 1;
                                 break;
                             case kDirectionLeft: // Slide in right: from the left.
                                 dx = -1;
                                 break;
                             default:
                                 return;
                             }
                             const double a = Staggered(t, ReadingPlace(p, i), 0.45);
                             if (a <= 0)
                                 return;
                             const double remaining = std::pow(1 - a, 3) * LineHeight(s) * 0.8;
                             Placement at = RestingPlace(p, i);
                             at.x += Round(dx * remaining);
                             at.y += Round(dy * remaining);
                             at.opacity = Opacity(a * 1.5);
                             Draw(s, p, i, at);
                         }));
}

std::int32_t TextEffect42(std::uint32_t message, void* params)
{
    return TextProcedure(
        message, params, EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
            const double a = Staggered(t, ReadingPlace(p, i), 0.35);
            if (a <= 0)
                return;
            const std::int32_t opacity = Opacity(a * 2.5);
            if (s.soft.levels.empty()) { // No soft cells (too large a caption): a plain fade.
                Placement at = RestingPlace(p, i);
                at.opacity = opacity;
                Draw(s, p, i, at);
                return;
            }
            const double focus = EaseOut(a);
            const auto blur = static_cast<std::int32_t>((1 - focus) * (s.soft.levels.size() - 1) * 256);
            const Placement at = RestingPlace(p, i);
            const records::TextRecord& r = *p.text;
            // The shadow blurs with its glyph (a soft dark copy, displaced as DrawGlyph displaces it) and
            // comes in as the glyph sharpens: a shadow of a haze would only muddy it, and costs a second
            // pass over the widest boxes.
            constexpr int kShadowFrom = 384;
            if (r.shadow != 0 && blur < kShadowFrom) {
                const std::int64_t offset = ShadowOffset(s);
                DrawSoftGlyph(s, Saturate(at.x + offset), Saturate(at.y + offset), 0x000000,
                              opacity * 5 / 8 * (kShadowFrom - blur) / kShadowFrom, i, blur + 256, kUnitScale,
                              kUnitScale, 0);
            }
            DrawSoftGlyph(s, Saturate(at.x), Saturate(at.y), r.colour, opacity, i, blur, kUnitScale,
                          kUnitScale, 0);
        }),
        [](TextEffectState& s, const TextEffectParams& block) { PrepareSoftCells(s, block); });
}

std::int32_t TextEffect43(std::uint32_t message, void* params)
{
    return TextProcedure(message, params,
                         EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
                             if (p.variant != 0 && p.variant != 1)
                                 return;
                             const double a = Staggered(t, ReadingPlace(p, i), 0.4);
                             if (a <= 0)
                                 return;
                             const double e = EaseOut(a);
                             // In: from nothing, turning clockwise; out: from twice the size, turning the
                             // other way.
                             const double size = p.variant == 0 ? e : 1 + (1 - e);
                             const double turn = (p.variant == 0 ? 1 : -1) * (1 - e) * 540;
                             Placement at = AboutCentre(s, p, i, size, size, Tenths(turn));
                             at.opacity = Opacity(a * 2);
                             Draw(s, p, i, at);
                         }));
}

std::int32_t TextEffect45(std::uint32_t message, void* params)
{
    return TextProcedure(message, params,
                         EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
                             const double a = Staggered(t, ReadingPlace(p, i), 0.35);
                             if (a <= 0)
                                 return;
                             // Up to 1.35 times the size, then down through a small undershoot to 1.
                             constexpr double kRise = 0.55;
                             double size = 0;
                             if (a < kRise) {
                                 size = 1.35 * std::sin(a / kRise * kPi / 2);
                             } else {
                                 const double u = (a - kRise) / (1 - kRise);
                                 size = 1 + 0.35 * (1 - u) * std::cos(u * 1.5 * kPi);
                             }
                             Placement at = AboutCentre(s, p, i, size, size);
                             at.opacity = Opacity(a * 5);
                             Draw(s, p, i, at);
                         }));
}

namespace {

// Per glyph, three numbers drawn at init: the shake's rate and its two phases.
constexpr int kShakeNumbers = 3;

void PrepareShake(TextEffectState& s, const TextEffectParams& block)
{
    s.effectData.clear();
    for (int i = 0; i < block.glyphCount * kShakeNumbers; ++i)
        s.effectData.push_back(Rand());
}

} // namespace

std::int32_t TextEffect46(std::uint32_t message, void* params)
{
    return TextProcedure(
        message, params, EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
            const auto at3 = static_cast<std::size_t>(i) * kShakeNumbers;
            const bool drawn = at3 + kShakeNumbers <= s.effectData.size();
            // 9 to 15 swings over the animation, from phases of their own for each glyph and axis. The
            // glyphs stay upright: turned glyphs cost twice as much to draw and add little to a shake.
            const double rate = 9 + (drawn ? s.effectData[at3] % 7 : 0);
            const double phaseX = drawn ? s.effectData[at3 + 1] / 32768.0 * 2 * kPi : 0;
            const double phaseY = drawn ? s.effectData[at3 + 2] / 32768.0 * 2 * kPi : kPi / 2;
            const double calm = (1 - t) * (1 - t);
            const double amplitude = LineHeight(s) * 0.3 * calm;
            const double swing = 2 * kPi * rate * t;
            Placement at = RestingPlace(p, i);
            at.x += Round(amplitude * std::sin(swing + phaseX));
            at.y += Round(amplitude * std::sin(swing * 1.3 + phaseY));
            at.opacity = Opacity(t * 4);
            Draw(s, p, i, at);
        }),
        PrepareShake);
}

std::int32_t TextEffect47(std::uint32_t message, void* params)
{
    return TextProcedure(
        message, params, EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
            const double a = Staggered(t, ReadingPlace(p, i), 0.35);
            if (a <= 0)
                return;
            const records::TextRecord& r = *p.text;
            // The halo swells from the glyph's size and dies away as the glyph settles.
            const double halo = std::sin(kPi * a);
            if (!s.soft.levels.empty() && halo > 0) {
                const double size = 1 + 0.2 * a;
                const Placement glow = AboutCentre(s, p, i, size, size);
                const auto strongest = static_cast<std::int32_t>((s.soft.levels.size() - 1) * 256);
                DrawSoftGlyph(s, Saturate(glow.x), Saturate(glow.y), Lighter(r.colour, 0.6), Opacity(halo), i,
                              strongest, glow.scaleX, glow.scaleY, 0);
            }
            Placement at = RestingPlace(p, i);
            at.opacity = Opacity(a * 2);
            Draw(s, p, i, at);
        }),
        [](TextEffectState& s, const TextEffectParams& block) { PrepareSoftCells(s, block); });
}

namespace {

// Each glyph's turn in a random order, drawn at init.
void PrepareSparkle(TextEffectState& s, const TextEffectParams& block)
{
    s.effectData.resize(static_cast<std::size_t>(std::max(block.glyphCount, 0)));
    for (std::size_t i = 0; i < s.effectData.size(); ++i)
        s.effectData[i] = static_cast<std::int32_t>(i);
    for (std::size_t i = s.effectData.size(); i > 1; --i)
        std::swap(s.effectData[i - 1], s.effectData[static_cast<std::size_t>(Rand()) % i]);
}

} // namespace

std::int32_t TextEffect48(std::uint32_t message, void* params)
{
    return TextProcedure(
        message, params, EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
            const auto at = static_cast<std::size_t>(i);
            const int turn = at < s.effectData.size() ? s.effectData[at] : i;
            const double place = p.glyphCount > 1 ? static_cast<double>(turn) / (p.glyphCount - 1) : 0.0;
            const double u = Staggered(t, place, 0.25);
            if (u <= 0)
                return;
            const records::TextRecord& r = *p.text;
            // The glyph flashes white as it appears and cools to its colour.
            const double flash = 1 - u;
            const Placement rest = RestingPlace(p, i);
            DrawGlyph(s, Saturate(rest.x), Saturate(rest.y), p.glyphs[i].code, Lighter(r.colour, flash), 255,
                      r.shadow, i, kUnitScale, kUnitScale, 0);
            const Offset centre = CellCentre(s, i, 1, 1);
            const auto radius = static_cast<int>(LineHeight(s) * 0.6 * std::sin(kPi * u));
            DrawStar(s, rest.x + Round(centre.x), rest.y + Round(centre.y), radius,
                     static_cast<int>(256 * (1 - 0.5 * u)));
        }),
        PrepareSparkle);
}

std::int32_t TextEffect49(std::uint32_t message, void* params)
{
    return TextProcedure(message, params,
                         EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
                             // The side the letters come from, and so which way they move.
                             double side = 0;
                             if (p.direction == kDirectionLeft)
                                 side = 1; // From the right.
                             else if (p.direction == kDirectionRight)
                                 side = -1; // From the left.
                             else
                                 return;
                             // The glyphs nearest the side they come from arrive first.
                             const double across = AcrossPlace(s, i);
                             const double a = Staggered(t, side > 0 ? 1 - across : across, 0.5);
                             if (a <= 0)
                                 return;
                             const double distance = (1 - EaseOut(a)) * LineHeight(s) * 4;
                             // Rolling without slipping: the turn still to come is the distance over the
                             // radius (half the cell's height), anticlockwise when moving left.
                             const double radius = std::max(1.0, s.glyphCellHeight / 4.0);
                             const double degrees = side * distance / radius * 180 / kPi;
                             Placement at = AboutCentre(s, p, i, 1, 1, Tenths(degrees));
                             at.x += Round(side * distance);
                             at.opacity = Opacity(a * 3);
                             Draw(s, p, i, at);
                         }),
                         PrepareAcross);
}

std::int32_t TextEffect51(std::uint32_t message, void* params)
{
    return TextProcedure(
        message, params, EachGlyph([](TextEffectState& s, const TextEffectParams& p, int i, double t) {
            double side = 0;
            if (p.direction == kDirectionLeft)
                side = 1; // From the right.
            else if (p.direction == kDirectionRight)
                side = -1; // From the left.
            else
                return;
            const double across = AcrossPlace(s, i);
            const double a = Staggered(t, side > 0 ? 1 - across : across, 0.4);
            if (a <= 0)
                return;
            // Starts swung out a quarter turn, its foot towards the side it comes from,
            // and swings to and fro less and less about the hinge.
            const double degrees = -side * 90 * std::pow(1 - a, 1.5) * std::cos(2.5 * kPi * a);
            const double radians = degrees * kPi / 180;
            // DrawGlyph turns about the cell's centre; moving the origin keeps the top of
            // the cell, half its height above the centre, in place.
            const double hinge = s.glyphCellHeight / 4.0;
            Placement at = RestingPlace(p, i);
            at.x += Round(-hinge * std::sin(radians));
            at.y += Round(hinge * (std::cos(radians) - 1));
            at.angle = Tenths(degrees);
            at.opacity = Opacity(a * 4);
            Draw(s, p, i, at);
        }),
        PrepareAcross);
}

} // namespace lumenar::effects
