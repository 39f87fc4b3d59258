#pragma once

#include "records/Glyph.h"
#include "records/TextRecord.h"

#include <cstddef>
#include <cstdint>

namespace lumenar::effects {

/// Message codes of an effect procedure. Codes 2 and 4 are reserved (every procedure returns 0);
/// any code of 5 and above is a render.
enum EffectMessage : std::uint32_t
{
    EffectInit = 0,
    EffectRelease = 1,
    EffectReserved2 = 2,
    EffectRender = 3,
    EffectReserved4 = 4,
};

/// True for the codes that draw a frame (3 and everything from 5 on).
constexpr bool IsRenderMessage(std::uint32_t message)
{
    return message == EffectRender || message >= 5;
}

/// Direction codes. Picture effects: where the incoming picture enters from; text effects use the
/// codes in the opposite sense (a text row and a picture row with the same name show the same motion).
enum EffectDirection : std::uint16_t
{
    kDirectionNone = 0,
    kDirectionBottom = 0x01, ///< Pictures: enters at the bottom edge (memory row 0 first), moving up.
    kDirectionLeft = 0x04,   ///< Pictures: enters at the left edge, moving right.
    kDirectionTop = 0x10,    ///< Pictures: enters at the top edge, moving down.
    kDirectionRight = 0x40,  ///< Pictures: enters at the right edge, moving left.
    kDirectionBothHorizontalEdges = 0x11, ///< Text only.
    kDirectionBothVerticalEdges = 0x44,   ///< Text only.
};

/// The block of a picture-effect call. Pictures are 32-bit BGRX, rows of exactly width × 4 bytes,
/// bottom row first; all three have the same size.
struct EffectParams
{
    std::int32_t size;          ///< Always 64 (the block's declared size); never read.
    const std::uint8_t* source; ///< The outgoing picture.
    const std::uint8_t* target; ///< The incoming picture.
    std::uint8_t* output;       ///< Where the frame is drawn.
    std::int32_t width;
    std::int32_t height;
    std::int32_t progressNum; ///< Elapsed part of the transition.
    std::int32_t progressDen; ///< Whole length, same unit; never 0.
    std::uint16_t direction;  ///< The row's EffectDirection.
    std::uint16_t reserved0;  ///< Never set, never read.
    std::int32_t reserved[6]; ///< Never set, never read.
    std::int32_t variant;     ///< The row's family parameter.
};
static_assert(offsetof(EffectParams, source) < offsetof(EffectParams, target));
static_assert(offsetof(EffectParams, output) < offsetof(EffectParams, width));
static_assert(offsetof(EffectParams, progressDen) < offsetof(EffectParams, direction));
static_assert(offsetof(EffectParams, reserved) < offsetof(EffectParams, variant));

/// An opaque drawing surface handle for text effects (the caption drawing context).
struct DrawingSurface;

/// The block of a text-effect call.
struct TextEffectParams
{
    std::int32_t size;         ///< 40 in the caller's copy, 64 in the one the procedure gets; never read.
    DrawingSurface* dc;        ///< The surface the frame is drawn into (holds the picture under the caption).
    std::uint8_t* dcBits;      ///< The surface's pixels, width × height, layout as for pictures.
    records::TextRecord* text; ///< The caption's record (position, font, colour, effect state).
    const records::Glyph* glyphs; ///< The laid-out caption.
    std::int32_t glyphCount;
    std::int32_t width;
    std::int32_t height;
    std::int32_t progressNum;
    std::int32_t progressDen; ///< Never 0.
    std::uint16_t direction;
    std::uint16_t reserved0;
    std::int32_t reserved[6];
    std::int32_t variant;
};
static_assert(offsetof(TextEffectParams, dcBits) < offsetof(TextEffectParams, text));
static_assert(offsetof(TextEffectParams, glyphCount) < offsetof(TextEffectParams, width));
static_assert(offsetof(TextEffectParams, reserved) < offsetof(TextEffectParams, variant));

/// An effect procedure: a message code and a pointer to an EffectParams (picture table) or a
/// TextEffectParams (text table). Returns a signed result that callers ignore.
using EffectProc = std::int32_t (*)(std::uint32_t message, void* params);

} // namespace lumenar::effects
