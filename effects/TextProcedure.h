#pragma once

// What every text procedure shares: the message switch around a frame, where a glyph goes, and the
// arithmetic guards for positions. For the text-effect files of this folder only.

#include "effects/EffectProtocol.h"
#include "effects/TextEffectFramework.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace lumenar::effects::text {

inline constexpr std::int32_t kUnitScale = 65536;

// Positions are worked out in 64 bits; a caption pushed beyond the 32-bit range lands far outside the
// picture either way and draws nothing.
inline std::int32_t Saturate(std::int64_t value)
{
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

// Truncation of a double that may be far out of the 32-bit range (or not a number) without undefined
// conversion.
inline std::int64_t Truncate(double value)
{
    if (!(value > -9.0e18 && value < 9.0e18))
        return 0;
    return static_cast<std::int64_t>(value);
}

inline double Progress(const TextEffectParams& p)
{
    return static_cast<double>(p.progressNum) / static_cast<double>(p.progressDen);
}

// Where a glyph goes this frame: its origin in picture pixels, opacity 0..255, 16.16 scales and an angle
// in tenths of a degree (as DrawGlyph takes them).
struct Placement
{
    std::int64_t x;
    std::int64_t y;
    std::int32_t opacity = 255;
    std::int32_t scaleX = kUnitScale;
    std::int32_t scaleY = kUnitScale;
    std::int32_t angle = 0;
};

// The glyph's resting place: where the whole caption leaves it.
inline Placement RestingPlace(const TextEffectParams& p, int i)
{
    return {std::int64_t{p.text->x} + p.glyphs[i].gx, std::int64_t{p.text->y} + p.glyphs[i].gy};
}

inline void Draw(TextEffectState& state, const TextEffectParams& p, int i, const Placement& at)
{
    const records::TextRecord& r = *p.text;
    DrawGlyph(state, Saturate(at.x), Saturate(at.y), p.glyphs[i].code, r.colour, at.opacity, r.shadow, i,
              at.scaleX, at.scaleY, at.angle);
}

// For procedures that need nothing beyond the sheets at init.
struct NoPreparation
{
    void operator()(TextEffectState&, const TextEffectParams&) const {}
};

// One caption's procedure: init builds the state (then `prepare(state, block)` may draw what the
// effect fixes once per caption, such as a random order, into `state.effectData`), release frees it,
// codes 2 and 4 return 0, and `render(state, block)` runs for render codes when the caption has a state.
template <typename Render, typename Prepare = NoPreparation>
std::int32_t TextProcedure(std::uint32_t message, void* params, Render render, Prepare prepare = {})
{
    auto& block = *static_cast<TextEffectParams*>(params);
    switch (message) {
    case EffectInit: {
        if (BuildTextState(block) == 0) {
            FreeTextState(block);
            return -1;
        }
        if (TextEffectState* state = FindTextState(block.text->effectState))
            prepare(*state, block);
        return 0;
    }
    case EffectRelease:
        FreeTextState(block);
        return 0;
    case EffectReserved2:
    case EffectReserved4:
        return 0;
    default:
        break;
    }
    if (block.text == nullptr || block.glyphs == nullptr || block.glyphCount <= 0 || block.progressDen == 0)
        return 0;
    TextEffectState* state = FindTextState(block.text->effectState);
    if (state == nullptr)
        return 0;
    // The picture may have changed since init (the caller's context is authoritative for each frame).
    state->dcBits = block.dcBits;
    state->width = block.width;
    state->height = block.height;
    render(*state, block);
    return 0;
}

} // namespace lumenar::effects::text
