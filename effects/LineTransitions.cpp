#include "effects/LineTransitions.h"

#include "effects/TransitionFrame.h"
#include "platform/Cpu.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace lumenar::effects {

namespace {

constexpr std::uint32_t kFourthByte = 0xFF000000u;
constexpr std::uint32_t kColourBytes = 0x00FFFFFFu;

void RenderSqueezeThrough(const Frame& f)
{
    // The picture is pulled through a pinch, the way sand runs through the waist of an hourglass: the
    // pinch's row runs from h rows above the top edge to h rows below the bottom one, and a row h − d rows
    // from it is squeezed by d² × (w / 2) / h² on each side, down to nothing at the pinch (d = h).
    // So the three spans of h positions are the pinch coming in (the source's top rows narrow into it),
    // crossing (the source below it, the target above), and going out (the target's bottom rows widen
    // back). A squeezed row keeps the whole picture row, compressed, as squeezing something does; beside
    // it is black, the room the pinch has taken. Rows far from the pinch are copied unchanged, so 0 %
    // shows the source and 100 % the target.
    const std::int64_t h = f.h;
    const std::int64_t position = static_cast<std::int64_t>(f.Percent()) * 3 * h / 100;
    const std::int64_t pinch = position - h; // Screen row counted from the top.
    const std::int64_t halfWidth = f.w / 2;
    const bool sse2 = SqueezeRowSse2Built() && platform::Simd().sse2;
    for (std::int32_t r = 0; r < f.h; ++r) {
        const std::int64_t y = h - 1 - r; // Memory rows are stored bottom row first.
        const std::int64_t d = std::max<std::int64_t>(0, h - std::abs(y - pinch));
        // d² × (w / 2) <= h × (w × h) / 2 stays far inside 64 bits for every picture size we accept.
        const auto inset = static_cast<std::int32_t>(d * d * halfWidth / (h * h));
        const std::uint8_t* from = y < pinch ? f.TargetRow(r) : f.SourceRow(r);
        const auto* in = reinterpret_cast<const std::uint32_t*>(from);
        auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
        if (sse2)
            SqueezeRowSse2(in, out, f.w, inset);
        else
            SqueezeRowPortable(in, out, f.w, inset);
    }
}

// One diagonal line of the flip wave as one frame draws it: where it starts, how long it is, which
// picture it shows and which of its pixels that picture fills.
struct FlipLine
{
    std::size_t origin;  // Index of its first pixel, in the bottom row or at the line's starting edge.
    std::int32_t r0;     // Row of its first pixel.
    std::int32_t length; // Pixels.
    std::int32_t first;  // Position of the first drawn pixel; the ones before it are black.
    std::int32_t drawn;  // Drawn pixels; the ones after them are black.
    std::int64_t step;   // 16.16 step through the whole line per drawn pixel.
    bool fromTarget;
};

// The flip wave from init to release: the pictures' size it was made for, the wave's length n, its
// profile, the mirror bit, and room for one frame's lines so that a frame allocates nothing. A
// transition's init, frames and release run on one playback thread, and each player has its own: the
// state is the thread's.
struct FlipWaveState
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    std::int32_t n = 0;
    bool mirrored = false;
    std::vector<std::int32_t> profile;
    std::vector<FlipLine> lines;

    bool Fits(const Frame& f) const { return !profile.empty() && w == f.w && h == f.h; }
};
thread_local FlipWaveState flipWave;

// The state grows with the number of lines, w + h − 1. Two sides of the largest frame we expect make
// 32767; a picture far past that (a strip of a million pixels by a few) gets no state, rather than
// gigabytes of it, and shows only the ends.
constexpr std::int64_t kMaxFlipLines = 65536;

// The wave's position for this frame.
std::int64_t FlipWavePosition(const Frame& f, const FlipWaveState& wave)
{
    return (wave.n + static_cast<std::int64_t>(f.w) + f.h) * f.n / f.d;
}

void PlaceFlipLines(const Frame& f, FlipWaveState& wave)
{
    const std::int64_t w = f.w, h = f.h;
    const std::int64_t position = FlipWavePosition(f, wave);
    // Line j holds the pixels with x − r = w − 1 − j (x counted from the right when mirrored): line 0 is
    // the bottom corner, and the wave reaches line j j positions after line 0.
    for (std::int64_t j = 0; j < w + h - 1; ++j) {
        const std::int64_t c = w - 1 - j;
        const std::int64_t x0 = std::max<std::int64_t>(c, 0), r0 = std::max<std::int64_t>(-c, 0);
        const std::int64_t length = std::min(w - x0, h - r0);
        const auto index = static_cast<std::int32_t>(std::clamp<std::int64_t>(position - j, 0, wave.n));
        const std::int64_t scale = wave.profile[static_cast<std::size_t>(index)];
        // The pixel whose centre is nearest, along the line, to the picture's other diagonal (from the
        // top-left corner to the bottom-right one, h x + w r = w h): it stays put while the line shrinks.
        const std::int64_t cross = std::clamp<std::int64_t>(h * (w - c) / (w + h) - r0, 0, length - 1);
        const std::int64_t drawn = length * scale >> 16;
        FlipLine& line = wave.lines[static_cast<std::size_t>(j)];
        line.origin = static_cast<std::size_t>(r0 * w + (wave.mirrored ? w - 1 - x0 : x0));
        line.r0 = static_cast<std::int32_t>(r0);
        line.length = static_cast<std::int32_t>(length);
        line.first = static_cast<std::int32_t>(cross - (cross * scale >> 16));
        line.drawn = static_cast<std::int32_t>(drawn);
        line.step = drawn > 0 ? (length << 16) / drawn : 0;
        // The switch is at n / 2 rounded down: a 1 × 1 picture (n = 1) shows the target from the start.
        line.fromTarget = index >= wave.n / 2;
    }
}

// Draws the part of a line that lies in the rows from bandFirst to bandEnd.
void DrawFlipPiece(const FlipLine& line, const std::uint32_t* const pictures[2], std::uint32_t* output,
                   std::size_t along, std::int32_t bandFirst, std::int32_t bandEnd)
{
    std::int32_t t = std::max(0, bandFirst - line.r0);
    const std::int32_t end = std::min(line.length, bandEnd - line.r0);
    if (t >= end)
        return;
    std::uint32_t* out = output + line.origin;
    const std::uint32_t* in = pictures[line.fromTarget ? 1 : 0] + line.origin;
    std::size_t at = static_cast<std::size_t>(t) * along;
    for (const std::int32_t black = std::min(line.first, end); t < black; ++t, at += along)
        out[at] = 0;
    const std::int32_t drawnEnd = std::min(line.first + line.drawn, end);
    for (std::int64_t sample = (t - line.first) * line.step; t < drawnEnd;
         ++t, at += along, sample += line.step)
        out[at] = in[static_cast<std::size_t>(sample >> 16) * along];
    for (; t < end; ++t, at += along)
        out[at] = 0;
}

void RenderDiagonalFlipWave(const Frame& f)
{
    FlipWaveState& wave = flipWave;
    if (!wave.Fits(f)) {
        // No profile for these pictures: only the ends can be drawn.
        if (f.n == f.d)
            f.CopyTarget();
        else if (f.n == 0)
            f.CopySource();
        return;
    }
    PlaceFlipLines(f, wave);
    // Neighbouring pixels of a line are one row up and one column right (left when mirrored).
    const auto along = static_cast<std::size_t>(wave.mirrored ? f.w - 1 : f.w + 1);
    const std::uint32_t* pictures[2] = {reinterpret_cast<const std::uint32_t*>(f.source),
                                        reinterpret_cast<const std::uint32_t*>(f.target)};
    auto* output = reinterpret_cast<std::uint32_t*>(f.output);
    // Lines the wave has not reached (from the position on, profile entry 0) and lines it has passed (up
    // to position − n, entry n) are whole, unscaled: in each row they are two runs of columns, copied as
    // such. Only the lines between are walked.
    const std::int64_t position = FlipWavePosition(f, wave);
    const std::int64_t waveFirst = std::max<std::int64_t>(0, position - wave.n + 1);
    const auto waveEnd = static_cast<std::size_t>(std::min<std::int64_t>(position, f.w + f.h - 1));
    const std::uint32_t* notReached = pictures[wave.n / 2 > 0 ? 0 : 1];
    for (std::int32_t r = 0; r < f.h; ++r) {
        // Pixel x of row r is on line w − 1 − x + r.
        const auto before = static_cast<std::int32_t>(std::clamp<std::int64_t>(f.w + r - position, 0, f.w));
        const auto after = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(position - wave.n - r + 1, 0, f.w)); // Columns from w − after on.
        const std::size_t row = static_cast<std::size_t>(r) * static_cast<std::size_t>(f.w);
        const std::size_t beforeAt = wave.mirrored ? row + static_cast<std::size_t>(f.w - before) : row;
        const std::size_t afterAt = wave.mirrored ? row : row + static_cast<std::size_t>(f.w - after);
        std::copy_n(notReached + beforeAt, before, output + beforeAt);
        std::copy_n(pictures[1] + afterAt, after, output + afterAt);
    }
    // Walking each line from end to end touches a new row at every pixel; walking the lines' pieces in
    // bands of rows keeps the rows of one band in the cache while all lines pass through it. The lines
    // are taken from left to right, in the order of memory.
    constexpr std::int32_t kBand = 16;
    for (std::int32_t bandFirst = 0; bandFirst < f.h; bandFirst += kBand) {
        const std::int32_t bandEnd = std::min(f.h, bandFirst + kBand);
        // Line j starts in row max(0, j − (w − 1)) and is at most j + 1 long: the lines from bandFirst
        // up to w − 1 + bandEnd cross the band.
        const auto lineFirst = static_cast<std::size_t>(std::max<std::int64_t>(bandFirst, waveFirst));
        const std::size_t lineEnd = std::min(waveEnd, static_cast<std::size_t>(f.w - 1 + bandEnd));
        if (wave.mirrored) {
            for (std::size_t j = lineFirst; j < lineEnd; ++j)
                DrawFlipPiece(wave.lines[j], pictures, output, along, bandFirst, bandEnd);
        } else {
            for (std::size_t j = lineEnd; j-- > lineFirst;)
                DrawFlipPiece(wave.lines[j], pictures, output, along, bandFirst, bandEnd);
        }
    }
}

} // namespace

void SqueezeRowPortable(const std::uint32_t* from, std::uint32_t* out, std::int32_t w, std::int32_t inset)
{
    const std::int32_t width = w - 2 * inset;
    for (std::int32_t x = 0; x < inset; ++x) {
        out[x] &= kFourthByte;
        out[inset + width + x] &= kFourthByte;
    }
    if (width <= 0)
        return;
    // Each output pixel takes the picture pixel under its centre: 16.16 steps of w / width from half a
    // step in, so both edges of the row are sampled alike and the last sample stays below w. Unsqueezed,
    // that is the row itself.
    const std::int64_t step = (static_cast<std::int64_t>(w) << 16) / width;
    std::int64_t at = step / 2;
    std::uint32_t* squeezed = out + inset;
    for (std::int32_t x = 0; x < width; ++x, at += step)
        squeezed[x] = (squeezed[x] & kFourthByte) | (from[at >> 16] & kColourBytes);
}

std::vector<std::int32_t> FlipWaveProfile(std::int32_t n)
{
    if (n <= 0)
        return {65536};
    std::vector<std::int32_t> profile(static_cast<std::size_t>(n) + 1);
    const std::int64_t reciprocal = (std::int64_t{1} << 32) / n;
    for (std::int64_t i = 0; i <= n; ++i) {
        // k runs from 0 at the ends to (about) 65536 in the middle; the scale is 1 − k² in 16.16.
        const std::int64_t k = ((n - std::abs(2 * i - n)) * reciprocal) >> 16;
        profile[static_cast<std::size_t>(i)] = static_cast<std::int32_t>(65536 - (k * k >> 16));
    }
    return profile;
}

std::int32_t DiagonalFlipWave(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        const auto frame = ReadFrame(params);
        if (!frame)
            return 0;
        // Drawn for every transition, so that the generator's sequence does not depend on the size.
        const bool mirrored = (Rand() & 1) != 0;
        if (static_cast<std::int64_t>(frame->w) + frame->h - 1 > kMaxFlipLines) {
            flipWave = {};
            return 0;
        }
        flipWave.w = frame->w;
        flipWave.h = frame->h;
        flipWave.n = static_cast<std::int32_t>(0.7 * (static_cast<double>(frame->w) + frame->h));
        flipWave.mirrored = mirrored;
        flipWave.profile = FlipWaveProfile(flipWave.n);
        flipWave.lines.resize(static_cast<std::size_t>(frame->w) + static_cast<std::size_t>(frame->h) - 1);
        return 0;
    }
    if (message == EffectRelease) {
        flipWave = {};
        return 0;
    }
    return Stateless<RenderDiagonalFlipWave>(message, params);
}

std::int32_t SqueezeThrough(std::uint32_t message, void* params)
{
    return Stateless<RenderSqueezeThrough>(message, params);
}

} // namespace lumenar::effects
