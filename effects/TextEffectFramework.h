#pragma once

#include "effects/EffectProtocol.h"
#include "platform/Font.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace lumenar::effects {

/// The samples of one cell that can give ink, counted from the cell's left and top edges; right and
/// bottom exclusive. Empty (right <= left) for a glyph without ink.
struct InkBox
{
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

/// Blurred coverage of a caption's glyphs, for effects that draw soft glyphs (a blur, a halo of light).
/// Made once per caption by BuildSoftCells; empty otherwise. Each cell is the glyph's cell with a margin
/// on every side (the blur spreads into it), top row first, rows of `cellWidth` samples at the sheets'
/// double size; a sample is the coverage of the 2 × 2 sheet samples a picture pixel reads, 0 (none) to
/// 255 (all ink), blurred by the level's radius; coverage below 8 is dropped to 0.
struct SoftCells
{
    std::int32_t margin = 0; ///< Samples added to the glyph cell on each side.
    std::int32_t cellWidth = 0;
    std::int32_t cellHeight = 0;
    std::vector<std::int32_t> radii;               ///< Each level's blur radius in sheet samples.
    std::vector<std::vector<std::uint8_t>> levels; ///< One sheet per radius, one cell per character.
    std::vector<std::int32_t> cellOf;              ///< The cell of each glyph (repeated letters share).
    std::vector<InkBox> ink;                       ///< Per cell, the samples with coverage at any level.
    /// The columns of one sample row with coverage, right exclusive; empty (right <= left) for none.
    struct RowRun
    {
        std::int32_t left = 0;
        std::int32_t right = 0;
    };
    /// Per level, per cell, per sample row (counted from the cell's top): where its coverage lies, so an
    /// upright soft glyph visits only those columns.
    std::vector<std::vector<RowRun>> rowRuns;
};

/// The per-caption state of a running text effect: the caption's metrics and its two glyph sheets.
/// Made by BuildTextState at EffectInit and destroyed by FreeTextState at EffectRelease. The caption
/// record's 32-bit `effectState` word holds a handle to it (a pointer does not fit in 32 bits), so the
/// 96-byte record layout stays as the film stores it.
///
/// Both sheets hold one cell per glyph of the caption, stacked so that glyph i occupies memory rows
/// i × cell height to (i + 1) × cell height − 1, each cell bottom row first, rows of exactly the cell
/// width (a power of two, so a sample is (row << cell shift) + column). Everything in the sheets is at
/// double the caption's size, so one picture pixel averages 2 × 2 samples.
struct TextEffectState
{
    platform::TextMetrics metrics; ///< The font's metrics measured at double size, then halved.
    DrawingSurface* targetDc = nullptr;
    std::int32_t width = 0; ///< The picture's size in pixels.
    std::int32_t height = 0;
    std::uint8_t* dcBits = nullptr; ///< The picture (32-bit BGRX, bottom row first), not owned.

    /// Shadow sheet: 0 where there is no shadow, larger where it is denser. All 0 when the caption has
    /// no shadow. Each cell holds the glyph's shape 6 samples in from its left and top edges.
    std::int32_t shadowCellShift = 0;
    std::int32_t shadowCellWidth = 0;
    std::int32_t shadowSheetHeight = 0;
    std::int32_t shadowCellHeight = 0;
    std::vector<std::uint8_t> shadowBits;

    /// Glyph sheet: 255 background, 0 ink; each glyph drawn at x 0 on the baseline `ascent` (double size).
    std::int32_t glyphCellShift = 0;
    std::int32_t glyphCellWidth = 0;
    std::int32_t glyphSheetHeight = 0;
    std::int32_t glyphCellHeight = 0;
    std::vector<std::uint8_t> glyphBits;
    /// Cells laid out as the glyph sheet's: within a glyph's ink box, how many of the 2 × 2 samples a
    /// pixel reads there are ink (0..4), counted once at init so a frame reads one byte per pixel. One
    /// cell per character of the caption; `inkCountCell` names each glyph's.
    std::vector<std::uint8_t> inkCounts;
    std::vector<std::int32_t> inkCountCell;

    /// The caption's font at double size (what the glyph sheet was drawn with).
    std::unique_ptr<platform::Font> font;
    /// Each glyph's advance in sheet samples, |A| + B + |C| of its character (read once here rather than
    /// asking the font on every frame).
    std::vector<std::int32_t> glyphAdvances;
    /// Where each glyph's ink and shadow lie in their cells, so a frame visits only those pixels.
    std::vector<InkBox> glyphInk;
    std::vector<InkBox> shadowInk;
    /// The double-size ascent the sheets were drawn with.
    std::int32_t sheetAscent = 0;
    /// What a procedure fixes once per caption at init (a random order of the glyphs, say); empty
    /// unless the procedure fills it.
    std::vector<std::int32_t> effectData;
    /// Blurred cells, made at init by the procedures that draw soft glyphs.
    SoftCells soft;
};

/// Sheets larger than this are refused (the init fails and the caption is not drawn).
inline constexpr std::int64_t kMaxSheetBytes = 64LL * 1024 * 1024;

/// Builds the caption's state from a text block (`text`, `glyphs`, `glyphCount`, `dc`, `dcBits`, `width`,
/// `height`) and hangs it on the record. A record that already names a live state has that state
/// replaced. Returns 1 when the font and both sheets were made, 0 otherwise (the state made so far stays
/// hung on the record for FreeTextState). Thread: the caption's effect thread.
int BuildTextState(const TextEffectParams& block);

/// Destroys the state the block's record names and sets its `effectState` word to 0. Reads only
/// `block.text`; a null record, a 0 word or a word that names no live state does nothing.
void FreeTextState(const TextEffectParams& block);

/// The live state a record's `effectState` word names, or null. The state stays valid until the record's
/// FreeTextState; one caption's state is used by one thread at a time. Any thread.
TextEffectState* FindTextState(std::uint32_t handle);

/// Empties the process-wide cache of glyph and shadow cells that captions in the same font share
/// (benchmarks of a first caption; tests). Any thread.
void ForgetRenderedGlyphs();

/// Number of live states, for tests and leak checks. Any thread.
std::size_t LiveTextStates();

/// A rectangle of the picture in pixels counted from its left and top edges, right and bottom exclusive,
/// that a glyph may be clipped to: a band of rows or columns for reveals. An empty one draws nothing.
struct PictureBand
{
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

/// Draws one glyph onto the state's picture: shadow first (when `shadow` is non-zero), then the glyph's
/// ink blended towards `colour` (0xBBGGRR) with `opacity` (0..255). (x, y) is where the unrotated glyph's
/// origin (left end of its baseline) lands, in picture pixels counted from the top; scaleX and scaleY are
/// 16.16 factors (65536: the caption's own size); `angle` is in tenths of a degree, any value; the glyph
/// turns about its cell's centre. What is drawn is the cell of `glyphIndex` (made from that glyph's
/// character at init); `character` is the same character and is not read again. A glyph wholly outside
/// the picture, or an index without a cell, draws nothing. With a `band`, glyph and shadow change only the
/// pixels inside it (and inside the picture), exactly as they would be drawn without it. Returns 1.
std::int32_t DrawGlyph(TextEffectState& state, std::int32_t x, std::int32_t y, std::uint16_t character,
                       std::uint32_t colour, std::int32_t opacity, std::int32_t shadow,
                       std::int32_t glyphIndex, std::int32_t scaleX, std::int32_t scaleY, std::int32_t angle,
                       const PictureBand* band = nullptr);

/// Makes the state's soft cells from its glyph sheet: one level per radius (in double-size sheet samples,
/// 0 for the sharp coverage), each a box blur of that radius taken twice along both axes. Glyphs of the
/// same character share a cell. Returns false, and leaves no cells, when the radii are not ascending
/// from 0 or the cells would pass kMaxSheetBytes; callers then draw sharp glyphs. Thread: the caption's.
bool BuildSoftCells(TextEffectState& state, const TextEffectParams& block,
                    std::span<const std::int32_t> radii);

/// Draws one glyph from its soft cells, with no shadow: coverage blended towards `colour` (0xBBGGRR) by
/// `opacity` (0..255). `blur` picks the level in 1/256 steps (256: level 1; 384: half way between levels
/// 1 and 2), clamped to the levels made. Placement, scales and angle as DrawGlyph, so a soft glyph at level
/// 0 lies where DrawGlyph draws the sharp one. Draws nothing without soft cells. Returns 1.
std::int32_t DrawSoftGlyph(TextEffectState& state, std::int32_t x, std::int32_t y, std::uint32_t colour,
                           std::int32_t opacity, std::int32_t glyphIndex, std::int32_t blur,
                           std::int32_t scaleX, std::int32_t scaleY, std::int32_t angle);

/// Narrows [first, end) to the steps k for which low <= start + k × step < high: where a row of pixels,
/// stepping through a cell in 16.16 samples, stays inside one edge pair of an ink box. first >= end when
/// there are none. Exact in integers, so it picks precisely the steps a test at every step would: each
/// bound is estimated through `reciprocal` (1.0 / step, taken once by the caller; unused for a step of
/// 0) and then moved until the test it stands for holds.
[[gnu::always_inline]] inline void StepsWithin(std::int64_t start, std::int64_t step, double reciprocal,
                                               std::int64_t low, std::int64_t high, std::int64_t& first,
                                               std::int64_t& end)
{
    if (step == 0) {
        if (start < low || start >= high)
            end = first;
        return;
    }
    auto inside = [&](std::int64_t k) {
        const std::int64_t at = start + k * step;
        return at >= low && at < high;
    };
    // Where the line crosses the two edges, in steps; the run lies between them.
    const double a = static_cast<double>(low - start) * reciprocal;
    const double b = static_cast<double>(high - start) * reciprocal;
    const double lowest = std::min(a, b), highest = std::max(a, b);
    if (highest < static_cast<double>(first) - 2 || lowest > static_cast<double>(end) + 2) {
        end = first;
        return;
    }
    // Truncation is within a step of the bound; the tests below settle the last step.
    std::int64_t from = std::max(first, static_cast<std::int64_t>(lowest) - 1);
    std::int64_t to = std::min(end, static_cast<std::int64_t>(highest) + 2);
    while (from < to && !inside(from))
        ++from;
    while (from > first && inside(from - 1))
        --from;
    while (to > from && !inside(to - 1))
        --to;
    while (to < end && inside(to))
        ++to;
    first = from;
    end = std::max(from, to);
}

/// The soft glyph's upright run, two pixels at a time: pixel k takes the coverage at sample
/// (u + k × stepU) >> 16 of `a` (blended a `fraction`/256 of the way towards `b`), times `opacity`, and
/// moves each colour byte that part of 65536 towards `colour` (0xBBGGRR), rounding down; the fourth
/// byte stays. Draws the largest even number of pixels up to `count` and returns it; the caller draws
/// the rest the same way one at a time. Where SSE2 is not built (SoftRunSse2Built), draws nothing.
bool SoftRunSse2Built();
std::int64_t BlendSoftRunSse2(std::uint8_t* out, const std::uint8_t* a, const std::uint8_t* b, int fraction,
                              int opacity, std::int64_t u, std::int64_t stepU, std::int64_t count,
                              std::uint32_t colour);

/// An angle in tenths of a degree brought into 0..3599.
constexpr std::int32_t NormaliseAngle(std::int32_t angle)
{
    const std::int32_t rest = angle % 3600;
    return rest < 0 ? rest + 3600 : rest;
}

/// Blends one colour byte towards `colour` with `inkCount` (0..4) of 2 × 2 samples covered and
/// `alpha` = opacity / 4 (0..63): old + floor((colour − old) × inkCount × alpha / 256). Never reaches the
/// colour outright: full coverage at full opacity moves 252/256 of the way.
constexpr std::uint8_t BlendInk(std::uint8_t old, std::uint8_t colour, int inkCount, int alpha)
{
    // Floor division by 256: shifts of negative values are arithmetic, so negative products round down.
    return static_cast<std::uint8_t>(old + (((colour - old) * inkCount * alpha) >> 8));
}

/// Sines and cosines of 0..3599 tenths of a degree as truncated 16.16 integers. Process-wide, built
/// once on first use (thread-safe), never freed.
struct SinCos
{
    std::array<std::int32_t, 3600> sine;
    std::array<std::int32_t, 3600> cosine;
};
const SinCos& SinCosTable();

/// 768 bytes: 0 × 256, 0..255, 255 × 256. The returned pointer is the middle part, so indices −256..511
/// give the value clamped to 0..255. Process-wide, built once, never freed.
const std::uint8_t* ClampTable();

/// 50 steps from 0 to 255 (entry k = k × 255 / 49), for effects that fade in steps. Process-wide.
const std::array<std::int32_t, 50>& FadeRamp();

} // namespace lumenar::effects
