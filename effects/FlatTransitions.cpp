#include "effects/FlatTransitions.h"

#include "effects/BasicTransitions.h"
#include "effects/TransitionFrame.h"
#include "platform/Cpu.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <span>
#include <vector>

namespace lumenar::effects {

namespace {

void RenderFadeThroughBlack(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // Level 0..256 of the picture shown: the source falling to black, then the target rising from it.
    const std::int64_t twice = 2 * static_cast<std::int64_t>(f.n);
    const bool second = twice > f.d;
    const auto level = static_cast<std::uint32_t>((second ? twice - f.d : f.d - twice) * 256 / f.d);
    const std::uint8_t* picture = second ? f.target : f.source;
    if (BlendAvx2Built() && platform::Simd().avx2)
        ScaleBytesAvx2(picture, f.output, f.Bytes(), level);
    else if (CrossFadeSse2Built() && platform::Simd().sse2)
        ScaleBytesSse2(picture, f.output, f.Bytes(), level);
    else
        ScaleBytesPortable(picture, f.output, f.Bytes(), level);
}

// The largest s >= 0 with s * s <= v (0 for negative v).
std::int64_t FloorSqrt(double v)
{
    if (v <= 0)
        return 0;
    auto s = static_cast<std::int64_t>(std::sqrt(v));
    while (static_cast<double>(s + 1) * static_cast<double>(s + 1) <= v)
        ++s;
    while (s > 0 && static_cast<double>(s) * static_cast<double>(s) > v)
        --s;
    return s;
}

void RenderIris(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // In doubled pixel-centre coordinates (2x + 1 − w), so that odd sizes keep an exact centre, the
    // circle's squared radius grows as t² to the half diagonal's: it holds the corners at full progress.
    const double t = static_cast<double>(f.n) / f.d;
    const double w = f.w, h = f.h;
    const double radius2 = t * t * (w * w + h * h);
    for (std::int32_t r = 0; r < f.h; ++r) {
        std::memcpy(f.OutputRow(r), f.SourceRow(r), f.RowBytes());
        const double dy = 2.0 * r + 1 - f.h;
        const double room = radius2 - dy * dy;
        if (room < 0)
            continue;
        const std::int64_t s = FloorSqrt(room);
        // Columns with |2x + 1 − w| <= s.
        const std::int64_t first = std::max<std::int64_t>(0, (f.w - 1 - s + 1) / 2);
        const std::int64_t last = std::min<std::int64_t>(f.w - 1, (f.w - 1 + s) / 2);
        if (last >= first)
            CopyPixels(f.OutputRow(r) + first * 4, f.TargetRow(r) + first * 4,
                       static_cast<std::int32_t>(last - first + 1));
    }
}

void RenderCheckerboard(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    constexpr std::int32_t kCells = 8;
    const std::int32_t cellWidth = (f.w + kCells - 1) / kCells;
    const std::int32_t cellHeight = (f.h + kCells - 1) / kCells;
    // How far the target has wiped into a cell of each parity: the even cells in the first half, the
    // odd ones in the second.
    std::int32_t covered[2];
    for (int parity = 0; parity < 2; ++parity) {
        const std::int64_t progress =
            2 * static_cast<std::int64_t>(f.n) - parity * static_cast<std::int64_t>(f.d);
        covered[parity] =
            static_cast<std::int32_t>(std::clamp<std::int64_t>(progress * cellWidth / f.d, 0, cellWidth));
    }
    for (std::int32_t r = 0; r < f.h; ++r) {
        std::memcpy(f.OutputRow(r), f.SourceRow(r), f.RowBytes());
        // Cells counted from the top row, as the board is seen.
        const std::int32_t cellRow = (f.h - 1 - r) / cellHeight;
        for (std::int32_t cell = 0; cell * cellWidth < f.w; ++cell) {
            const std::int32_t x = cell * cellWidth;
            const std::int32_t count = std::min(covered[(cell + cellRow) % 2], f.w - x);
            CopyPixels(f.OutputRow(r) + static_cast<std::size_t>(x) * 4,
                       f.TargetRow(r) + static_cast<std::size_t>(x) * 4, count);
        }
    }
}

void RenderSplit(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // Each half moves out by up to the wider half's width, so both have left at full progress.
    const std::int32_t half = f.w / 2;
    const auto offset = static_cast<std::int32_t>(static_cast<std::int64_t>(f.w - half) * f.n / f.d);
    for (std::int32_t r = 0; r < f.h; ++r) {
        std::uint8_t* out = f.OutputRow(r);
        const std::uint8_t* source = f.SourceRow(r);
        std::memcpy(out, f.TargetRow(r), f.RowBytes());
        // The left half [0, half) now starts `offset` further left, the right half [half, w) further right.
        CopyPixels(out, source + static_cast<std::size_t>(offset) * 4, half - offset);
        CopyPixels(out + static_cast<std::size_t>(half + offset) * 4,
                   source + static_cast<std::size_t>(half) * 4, f.w - half - offset);
    }
}

// Draws the whole of `picture` scaled (nearest sample) into the output rectangle of `width` × `height`
// pixels whose bottom-left pixel is (left, bottom), over what the output holds. At the frame's size it
// is the picture itself.
void DrawScaled(const Frame& f, const std::uint8_t* picture, std::int32_t left, std::int32_t bottom,
                std::int32_t width, std::int32_t height)
{
    if (width <= 0 || height <= 0)
        return;
    // 16.16 steps through the picture; (width − 1) steps stay below its last column.
    const std::int64_t step = (static_cast<std::int64_t>(f.w) << 16) / width;
    for (std::int32_t r = 0; r < height; ++r) {
        const auto from = reinterpret_cast<const std::uint32_t*>(
            picture + f.RowBytes() * static_cast<std::size_t>(static_cast<std::int64_t>(r) * f.h / height));
        auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(bottom + r)) + left;
        if (width == f.w) {
            std::memcpy(out, from, f.RowBytes());
            continue;
        }
        std::int64_t at = 0;
        for (std::int32_t x = 0; x < width; ++x, at += step)
            out[x] = from[at >> 16];
    }
}

// The centred rectangle of n / d of the frame's size.
void DrawCentredScaled(const Frame& f, const std::uint8_t* picture, std::int64_t n, std::int64_t d)
{
    const auto width = static_cast<std::int32_t>(f.w * n / d);
    const auto height = static_cast<std::int32_t>(f.h * n / d);
    DrawScaled(f, picture, (f.w - width) / 2, (f.h - height) / 2, width, height);
}

void RenderZoomIn(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    f.CopySource();
    DrawCentredScaled(f, f.target, f.n, f.d);
}

void RenderZoomOut(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    f.CopyTarget();
    DrawCentredScaled(f, f.source, static_cast<std::int64_t>(f.d) - f.n, f.d);
}

// The part of a side that a picture growing with the progress takes.
std::int32_t Grown(const Frame& f, std::int32_t side)
{
    return static_cast<std::int32_t>(static_cast<std::int64_t>(side) * f.n / f.d);
}

void RenderStretch(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    f.CopySource();
    DrawScaled(f, f.target, 0, 0, Grown(f, f.w), f.h);
}

void RenderSqueeze(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    const std::int32_t width = Grown(f, f.w);
    DrawScaled(f, f.target, 0, 0, width, f.h);
    DrawScaled(f, f.source, width, 0, f.w - width, f.h);
}

void RenderStretchAcross(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // From the top edge down: the rows are stored bottom row first.
    f.CopySource();
    const std::int32_t height = Grown(f, f.h);
    DrawScaled(f, f.target, 0, f.h - height, f.w, height);
}

void RenderClockWipe(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // A hand turns clockwise from twelve o'clock about the centre; the target shows where it has been.
    // Positions are doubled pixel centres (2x + 1 − w, 2r + 1 − h), y up, so odd sizes keep an exact
    // centre. A point at angle φ (clockwise from up) is passed when φ < θ: on the hand's half turn that
    // is sin(φ − θ) < 0, the sign of the cross product of the point and the hand.
    const double theta = 2 * 3.14159265358979323846 * f.n / f.d;
    const double handX = std::sin(theta), handY = std::cos(theta);
    const bool pastHalf = theta > 3.14159265358979323846;
    for (std::int32_t r = 0; r < f.h; ++r) {
        const auto* source = reinterpret_cast<const std::uint32_t*>(f.SourceRow(r));
        const auto* target = reinterpret_cast<const std::uint32_t*>(f.TargetRow(r));
        auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
        const std::int32_t dy = 2 * r + 1 - f.h;
        const double across = dy * handX;
        const auto passed = [&](std::int32_t x) {
            const std::int32_t dx = 2 * x + 1 - f.w;
            // The right half turn [0, π) holds the upper half of the middle column and the centre.
            const bool rightHalf = dx > 0 || (dx == 0 && dy >= 0);
            const bool behindHand = dx * handY - across < 0;
            return rightHalf ? (pastHalf || behindHand) : (pastHalf && behindHand);
        };
        // Within the left half, the middle column and the right half the test is monotonic in x (the
        // cross product is linear): each part is at most two runs, found by bisection.
        const std::int32_t middle = (f.w - 1) / 2;
        const std::int32_t parts[][2] = {{0, middle},
                                         {middle, f.w % 2 == 1 ? middle + 1 : middle},
                                         {f.w % 2 == 1 ? middle + 1 : middle, f.w}};
        for (const auto& [first, end] : parts) {
            if (first >= end)
                continue;
            const bool startsPassed = passed(first);
            std::int32_t low = first, high = end; // The first x whose answer differs lies in (low, high].
            if (passed(end - 1) == startsPassed) {
                low = end;
            } else {
                while (high - low > 1) {
                    const std::int32_t mid = low + (high - low) / 2;
                    (passed(mid) == startsPassed ? low : high) = mid;
                }
                low = high;
            }
            const auto* first1 = startsPassed ? target : source;
            const auto* second = startsPassed ? source : target;
            std::memcpy(out + first, first1 + first, static_cast<std::size_t>(low - first) * 4);
            std::memcpy(out + low, second + low, static_cast<std::size_t>(end - low) * 4);
        }
    }
}

void RenderPixelate(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // Blocks grow from single pixels to a twelfth of the shorter side by half time on the source, and
    // shrink back on the target; each block takes the colour of its middle pixel.
    const std::int32_t largest = std::max(2, std::min(f.w, f.h) / 12);
    const std::int64_t fromMiddle = std::abs(2 * static_cast<std::int64_t>(f.n) - f.d);
    const auto block = static_cast<std::int32_t>(1 + (largest - 1) * (f.d - fromMiddle) / f.d);
    const std::uint8_t* picture = 2 * static_cast<std::int64_t>(f.n) <= f.d ? f.source : f.target;
    for (std::int32_t r = 0; r < f.h; ++r) {
        const std::int32_t sampleRow = std::min(r / block * block + block / 2, f.h - 1);
        const auto* from = reinterpret_cast<const std::uint32_t*>(picture + f.RowBytes() * sampleRow);
        auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
        for (std::int32_t x = 0; x < f.w; x += block)
            std::fill_n(out + x, std::min(block, f.w - x), from[std::min(x + block / 2, f.w - 1)]);
    }
}

// The first x in [first, end) at which `stillBefore(x)` is false, for a test that is true and then
// false along the row (end when it never turns).
template <typename Test>
std::int32_t FirstAfter(std::int32_t first, std::int32_t end, const Test& stillBefore)
{
    while (first < end) {
        const std::int32_t mid = first + (end - first) / 2;
        if (stillBefore(mid))
            first = mid + 1;
        else
            end = mid;
    }
    return first;
}

void RenderGradientDissolve(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // Each pixel's place along the diagonal from the top-left corner, g in 0..1 (in 1/65536), decides
    // when it turns: it blends from source to target as the progress, stretched so that the soft band
    // of width kSoft has passed the far corner at the end, moves past it.
    constexpr std::int64_t kOne = 65536, kSoft = kOne / 10;
    const std::int64_t front = (kOne + kSoft) * f.n / f.d; // The band's leading edge.
    // g = (x / w + rowFromTop / h) / 2, stepping by kOne / (2w) per column.
    const std::int64_t perColumn = kOne / (2 * static_cast<std::int64_t>(f.w));
    const BlendRampForm blendRamp = BlendRamp();
    for (std::int32_t r = 0; r < f.h; ++r) {
        const std::uint8_t* source = f.SourceRow(r);
        const std::uint8_t* target = f.TargetRow(r);
        std::uint8_t* out = f.OutputRow(r);
        const std::int64_t rowStart = kOne * (f.h - 1 - r) / (2 * static_cast<std::int64_t>(f.h));
        // The target's weight in 16.16, 256 at the top-left and falling along the row.
        const std::int64_t start = ((front - rowStart) << 16) * 256 / kSoft;
        const std::int64_t step = -(perColumn << 16) * 256 / kSoft;
        const auto weight = [&](std::int32_t x) {
            return std::clamp<std::int64_t>((start + x * step) >> 16, 0, 256);
        };
        const std::int32_t band = FirstAfter(0, f.w, [&](std::int32_t x) { return weight(x) == 256; });
        const std::int32_t rest = FirstAfter(band, f.w, [&](std::int32_t x) { return weight(x) > 0; });
        CopyPixels(out, target, band);
        const auto at = static_cast<std::size_t>(band) * 4;
        blendRamp(source + at, target + at, out + at, rest - band, start + band * step, step);
        CopyPixels(out + static_cast<std::size_t>(rest) * 4, source + static_cast<std::size_t>(rest) * 4,
                   f.w - rest);
    }
}

// The pattern wipe's variant is a bit field. The low four bits choose the cells' size, (bits + 4) / 128
// of the picture's longer side; kSoftEdges blends each diamond's rim over a quarter of a cell instead of
// cutting it; kTravelFromEdge sends the wave of cells in from the row's edge (out from the centre when
// the row names none) instead of along the diagonal from the top-left corner.
constexpr std::int32_t kCellSizeBits = 0x00F;
constexpr std::int32_t kSoftEdges = 0x100;
constexpr std::int32_t kTravelFromEdge = 0x200;

struct PatternCells
{
    std::int64_t cell;  // Cell side in pixels.
    std::int64_t band;  // Soft rim in doubled pixels (0 for hard edges).
    std::int64_t reach; // A diamond's half-diagonal in doubled pixels when its cell has turned.
    std::int64_t progress;
    std::int32_t w, h, variant;
    std::uint16_t direction;

    explicit PatternCells(const Frame& f)
        : cell(std::max<std::int64_t>(1, std::int64_t{std::max(f.w, f.h)} *
                                             ((f.variant & kCellSizeBits) + 4) / 128)),
          band((f.variant & kSoftEdges) != 0 ? std::max<std::int64_t>(2, cell / 2) : 0),
          reach(2 * cell + 2 + band), progress(kOne * f.n / f.d), w(f.w), h(f.h), variant(f.variant),
          direction(f.direction)
    {
    }

    static constexpr std::int64_t kOne = 65536;

    // When a cell starts to turn, 0..1 in 1/65536, from its centre (cx, cy) in doubled pixels, cy from
    // the bottom row up.
    std::int64_t Order(std::int64_t cx, std::int64_t cy) const
    {
        const std::int64_t w2 = 2 * std::int64_t{w}, h2 = 2 * std::int64_t{h};
        std::int64_t order;
        if ((variant & kTravelFromEdge) == 0)
            order = (cx + h2 - cy) * kOne / (w2 + h2);
        else if (direction == kDirectionLeft)
            order = cx * kOne / w2;
        else if (direction == kDirectionRight)
            order = (w2 - cx) * kOne / w2;
        else if (direction == kDirectionTop)
            order = (h2 - cy) * kOne / h2;
        else if (direction == kDirectionBottom)
            order = cy * kOne / h2;
        else
            order = std::max(std::abs(cx - w) * kOne / w, std::abs(cy - h) * kOne / h);
        return std::clamp<std::int64_t>(order, 0, kOne);
    }

    // The diamond's half-diagonal now, in doubled pixels: each cell turns over the last quarter of the
    // time that follows its start, so the first cell begins at once and the last ends at full progress.
    std::int64_t Radius(std::int64_t cx, std::int64_t cy) const
    {
        const std::int64_t start = Order(cx, cy) * 3 / 4;
        const std::int64_t turned = std::clamp<std::int64_t>((progress - start) * 4, 0, kOne);
        return turned * reach / kOne;
    }
};

// Floor of a / 2 for any sign.
std::int64_t HalfDown(std::int64_t a)
{
    return a >= 0 ? a / 2 : -((1 - a) / 2);
}

void RenderPatternWipe(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    const PatternCells pattern(f);
    const std::int64_t cell = pattern.cell;
    // A rim pixel's weight is 256 × its depth inside the diamond / the rim's width, in 16.16.
    const std::int64_t perRim = (std::int64_t{256} << 16) / std::max<std::int64_t>(pattern.band, 1);
    const BlendRampForm blendRamp = BlendRamp();
    // Cell by cell, so that each cell's diamond is worked out once.
    for (std::int64_t bottom = 0; bottom < f.h; bottom += cell) {
        const auto top = static_cast<std::int32_t>(std::min<std::int64_t>(bottom + cell, f.h));
        const std::int64_t cy = 2 * bottom + cell;
        for (std::int64_t left = 0; left < f.w; left += cell) {
            const auto l = static_cast<std::int32_t>(left);
            const auto right = static_cast<std::int32_t>(std::min<std::int64_t>(left + cell, f.w));
            const std::int64_t cx = 2 * left + cell;
            const std::int64_t radius = pattern.Radius(cx, cy);
            // Pixels x with |2x + 1 − cx| below m lie inside the row's slice of the diamond; both the
            // slice and its solid core (m less the rim) are cut to the cell.
            const auto span = [&](std::int64_t m, std::int32_t& from, std::int32_t& to) {
                from = static_cast<std::int32_t>(
                    std::clamp<std::int64_t>(HalfDown(cx - m - 1) + 1, left, right));
                to = static_cast<std::int32_t>(
                    std::clamp<std::int64_t>(-HalfDown(-(cx + m - 1)), from, right));
            };
            for (auto r = static_cast<std::int32_t>(bottom); r < top; ++r) {
                const std::uint8_t* source = f.SourceRow(r);
                const std::uint8_t* target = f.TargetRow(r);
                std::uint8_t* out = f.OutputRow(r);
                const std::int64_t dy = std::abs(2 * std::int64_t{r} + 1 - cy);
                std::int32_t outerFrom, outerTo, coreFrom, coreTo;
                span(radius - dy, outerFrom, outerTo);
                span(radius - pattern.band - dy, coreFrom, coreTo);
                if (coreFrom >= coreTo)
                    coreFrom = coreTo = outerFrom + (outerTo - outerFrom) / 2;
                CopyPixels(out + std::size_t(l) * 4, source + std::size_t(l) * 4, outerFrom - l);
                CopyPixels(out + std::size_t(coreFrom) * 4, target + std::size_t(coreFrom) * 4,
                           coreTo - coreFrom);
                CopyPixels(out + std::size_t(outerTo) * 4, source + std::size_t(outerTo) * 4,
                           right - outerTo);
                // A rim pixel's weight is its depth inside the diamond times perRim: it climbs by two
                // depths a column up to the centre column and falls by two after it.
                const std::int64_t centre = HalfDown(cx - 1);
                const auto rim = [&](std::int32_t from, std::int32_t to) {
                    if (from >= to)
                        return;
                    const auto split =
                        static_cast<std::int32_t>(std::clamp<std::int64_t>(centre + 1, from, to));
                    const auto at = [&](std::int32_t x) { return std::size_t(x) * 4; };
                    const auto depth = [&](std::int32_t x) {
                        return radius - dy - std::abs(2 * std::int64_t{x} + 1 - cx);
                    };
                    blendRamp(source + at(from), target + at(from), out + at(from), split - from,
                              depth(from) * perRim, 2 * perRim);
                    blendRamp(source + at(split), target + at(split), out + at(split), to - split,
                              depth(split) * perRim, -2 * perRim);
                };
                rim(outerFrom, coreFrom);
                rim(coreTo, outerTo);
            }
        }
    }
}

// The burst's rays: wedges of equal angle about the centre, the first starting along the positive x
// axis and counting anticlockwise, each reaching out at its own speed, drawn at init.
constexpr int kRays = 24;

struct BurstState
{
    bool ready = false;
    std::array<std::int32_t, kRays>
        speed{}; // 100..199: the ray reaches the corners by 100 / speed of the time.
    std::array<double, kRays> cotangent{}; // Of each wedge's first edge (0 where that edge is horizontal).
};
thread_local BurstState burst;

void RenderBurst(const Frame& f)
{
    if (!burst.ready || DrawEnd(f, f.Percent()))
        return;
    // Doubled pixel-centre coordinates about the centre, y up (memory row 0 is the bottom row). A ray
    // of length L covers the pixels of its wedge with X² + Y² < L²; each wedge meets a row in one run
    // (the rows above the centre meet the upper wedges from left to right in falling order, the rows
    // below meet the lower ones in rising order), and the circle cuts that run once more.
    const double reach = std::sqrt(double(f.w) * f.w + double(f.h) * f.h) + 2;
    std::array<double, kRays> length{};
    for (int k = 0; k < kRays; ++k)
        length[k] = reach * std::min<std::int64_t>(f.d, std::int64_t{f.n} * burst.speed[k] / 100) / f.d;
    const auto firstAtOrRightOf = [&](double bigX) {
        return static_cast<std::int32_t>(std::clamp(std::ceil((bigX + f.w - 1) / 2), 0.0, double(f.w)));
    };
    for (std::int32_t r = 0; r < f.h; ++r) {
        const double y = 2.0 * r + 1 - f.h;
        const std::uint8_t* source = f.SourceRow(r);
        const std::uint8_t* target = f.TargetRow(r);
        std::uint8_t* out = f.OutputRow(r);
        const bool upper = y >= 0;
        std::int32_t from = 0;
        for (int step = 0; step < kRays / 2; ++step) {
            const int k = upper ? kRays / 2 - 1 - step : kRays / 2 + step;
            // The wedge ends where the row meets the edge it shares with the next one met.
            const int edge = upper ? k : k + 1;
            const std::int32_t to =
                step + 1 == kRays / 2 ? f.w : std::max(from, firstAtOrRightOf(y * burst.cotangent[edge]));
            const double m = length[k] * length[k] - y * y;
            std::int32_t in = to, inEnd = to;
            if (m > 0) {
                const double half = std::sqrt(m);
                in = std::clamp(static_cast<std::int32_t>(std::floor((f.w - 1 - half) / 2)) + 1, from, to);
                inEnd = std::clamp(static_cast<std::int32_t>(std::ceil((f.w - 1 + half) / 2)), in, to);
            }
            CopyPixels(out + std::size_t(from) * 4, source + std::size_t(from) * 4, in - from);
            CopyPixels(out + std::size_t(in) * 4, target + std::size_t(in) * 4, inEnd - in);
            CopyPixels(out + std::size_t(inEnd) * 4, source + std::size_t(inEnd) * 4, to - inEnd);
            from = to;
        }
    }
}

// Routine of the bounce's arcs that end at 16, 64 and 100 %: the source shows under the target.
void DrawBounceOverSource(const Frame& f, std::int32_t lift)
{
    for (std::int32_t r = 0; r < lift; ++r)
        std::memcpy(f.OutputRow(r), f.SourceRow(r), f.RowBytes());
}

// Routine of the arcs that end at 48 and 86 %: the target's shadow darkens the source under it.
void DrawBounceOverShadow(const Frame& f, std::int32_t lift)
{
    for (std::int32_t r = 0; r < lift; ++r) {
        const std::uint8_t* source = f.SourceRow(r);
        std::uint8_t* out = f.OutputRow(r);
        for (std::size_t i = 0; i < f.RowBytes(); ++i)
            out[i] = static_cast<std::uint8_t>(source[i] >> 1);
    }
}

void RenderBounce(const Frame& f)
{
    const std::int32_t p = f.Percent();
    if (DrawEnd(f, p))
        return;
    // The target falls in lifted by the height (percent of the picture) and bounces on the floor.
    const std::int32_t lift =
        std::min(f.h, static_cast<std::int32_t>(static_cast<std::int64_t>(f.h) * BounceHeight(p) / 100));
    CopyRows(f, lift, f.target, 0, f.h - lift);
    const bool evenArc = p <= 16 || (p >= 49 && p <= 64) || p >= 87;
    if (evenArc)
        DrawBounceOverSource(f, lift);
    else
        DrawBounceOverShadow(f, lift);
}

// The wave's edge positions, one per row (entering from the left or right) or per column (from the
// bottom or top), made at init so that a frame allocates nothing. A transition's init, frames and
// release run on one playback thread, and each player has its own: the state is the thread's.
struct WaveState
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    std::vector<std::int32_t> edges;
};
thread_local WaveState wave;

void RenderWave(const Frame& f)
{
    if (DrawEnd(f, f.Percent()))
        return;
    // Without a matching init there is nowhere to keep the edge: nothing more to draw.
    if (wave.edges.empty() || wave.w != f.w || wave.h != f.h)
        return;
    const bool vertical = f.direction == kDirectionBottom || f.direction == kDirectionTop;
    const std::int32_t travel = vertical ? f.h : f.w; // How far the edge goes.
    const std::int32_t length = vertical ? f.w : f.h; // Along the edge.
    // The edge has travelled t of the way, waving by up to a tenth of it with sin(π t), which is
    // 0 at both ends, while the wave's phase turns with cos(π t).
    const double pi = 3.14159265358979323846;
    const double t = static_cast<double>(f.n) / f.d;
    const double amplitude = travel / 10.0 * std::sin(pi * t);
    const double phase = 2 * pi * std::cos(pi * t);
    const double wavelength = std::max(1, length / 3);
    for (std::int32_t i = 0; i < length; ++i) {
        const double edge = t * travel + amplitude * std::sin(2 * pi * i / wavelength + phase);
        wave.edges[static_cast<std::size_t>(i)] =
            static_cast<std::int32_t>(std::clamp(std::lround(edge), 0L, static_cast<long>(travel)));
    }
    if (!vertical) {
        const bool fromRight = f.direction == kDirectionRight;
        for (std::int32_t r = 0; r < f.h; ++r) {
            const std::int32_t edge = wave.edges[static_cast<std::size_t>(r)];
            const std::int32_t first = fromRight ? f.w - edge : 0; // The target's columns.
            std::memcpy(f.OutputRow(r), f.SourceRow(r), f.RowBytes());
            CopyPixels(f.OutputRow(r) + static_cast<std::size_t>(first) * 4,
                       f.TargetRow(r) + static_cast<std::size_t>(first) * 4, edge);
        }
        return;
    }
    const bool fromTop = f.direction == kDirectionTop;
    for (std::int32_t r = 0; r < f.h; ++r) {
        const auto* source = reinterpret_cast<const std::uint32_t*>(f.SourceRow(r));
        const auto* target = reinterpret_cast<const std::uint32_t*>(f.TargetRow(r));
        auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
        // Memory row r is r rows above the bottom edge and h − 1 − r below the top edge.
        const std::int32_t depth = fromTop ? f.h - 1 - r : r;
        for (std::int32_t x = 0; x < f.w; ++x)
            out[x] = depth < wave.edges[static_cast<std::size_t>(x)] ? target[x] : source[x];
    }
}

// The mosaic's tiles from init to release (the thread's, as the wave's edges are), and one tile row's
// runs: neighbouring tiles copied from the same picture make one run, a flat tile a run of its own.
// Copies `count` pixels. Runs of small tiles are a few pixels long, where the call to memcpy costs more
// than the copy: those go sixteen bytes at a time inline.
void CopyShortRun(std::uint8_t* out, const std::uint8_t* in, std::int32_t count)
{
    if (count > 32) {
        std::memcpy(out, in, static_cast<std::size_t>(count) * 4);
        return;
    }
    std::int32_t i = 0;
    for (; i + 4 <= count; i += 4)
        std::memcpy(out + i * 4, in + i * 4, 16);
    for (; i < count; ++i)
        std::memcpy(out + i * 4, in + i * 4, 4);
}

struct MosaicRun
{
    enum class Kind : std::uint8_t
    {
        Source,
        Target,
        Flat
    } kind;
    std::int32_t first;
    std::int32_t count;
    std::uint32_t colour;
};
// Where one tile row of small tiles reads from: each tile's first pixel in its picture, or in a block of its
// flat colour, and the step to the next pixel row (0 for a flat block).
struct MosaicTile
{
    const std::uint8_t* from;
    std::size_t step;
};
struct MosaicState : TileGrid
{
    std::vector<MosaicRun> runs;
    std::vector<MosaicTile> tiles;
    std::vector<std::uint32_t> flats; // One tile row of flat colours.
};
thread_local MosaicState mosaic;

template <std::int32_t S> void DrawSmallTiles(const Frame& f, std::int32_t p, std::int32_t window)
{
    const std::int32_t kc = mosaic.kc;
    MosaicTile* const tiles = mosaic.tiles.data();
    std::uint32_t* const flats = mosaic.flats.data();
    for (std::int32_t tileRow = 0; tileRow < mosaic.kr; ++tileRow) {
        const std::size_t bottom = f.RowBytes() * static_cast<std::size_t>(tileRow * S);
        const std::size_t middle = f.RowBytes() * static_cast<std::size_t>(tileRow * S + S / 2);
        const std::int32_t* thresholds =
            mosaic.thresholds.data() + static_cast<std::size_t>(tileRow) * static_cast<std::size_t>(kc);
        for (std::int32_t tile = 0; tile < kc; ++tile) {
            const std::int32_t since = p - thresholds[tile];
            const std::size_t x = static_cast<std::size_t>(tile) * S * 4;
            const std::uint8_t* picture = since >= 0 ? f.target : f.source;
            if (since >= -window && since < window) {
                std::uint32_t colour;
                std::memcpy(&colour, picture + middle + x + S / 2 * 4, 4);
                std::fill_n(flats + static_cast<std::size_t>(tile) * S, S, colour);
                tiles[tile] = {reinterpret_cast<const std::uint8_t*>(flats) + x, 0};
            } else {
                tiles[tile] = {picture + bottom + x, f.RowBytes()};
            }
        }
        for (std::int32_t i = 0; i < S; ++i) {
            std::uint8_t* out = f.OutputRow(tileRow * S + i);
            for (std::int32_t tile = 0; tile < kc; ++tile)
                std::memcpy(out + static_cast<std::size_t>(tile) * S * 4,
                            tiles[tile].from + tiles[tile].step * i, S * 4);
        }
    }
}

void RenderMosaic(const Frame& f)
{
    const std::int32_t p = f.Percent();
    if (DrawEnd(f, p) || !mosaic.Fits(f))
        return;
    // Each tile turns at its threshold as in the tile dissolve, but through a flat block: for kWindow
    // percent before it the source's colour at the tile's middle, for kWindow after it the target's.
    constexpr std::int32_t kWindow = 10;
    const std::int32_t s = mosaic.s;
    const std::int32_t kc = mosaic.kc;
    if (s == 4 || s == 8) {
        // Tiles this small turn in runs of a tile or two; a fixed-size copy per tile, wherever it reads
        // from, beats following runs with a branch each.
        (s == 4 ? DrawSmallTiles<4> : DrawSmallTiles<8>)(f, p, kWindow);
        return;
    }
    for (std::int32_t tileRow = 0; tileRow < mosaic.kr; ++tileRow) {
        const std::size_t middle = f.RowBytes() * static_cast<std::size_t>(tileRow * s + s / 2);
        const std::int32_t* thresholds = mosaic.thresholds.data() + static_cast<std::size_t>(tileRow) *
                                                                        static_cast<std::size_t>(mosaic.kc);
        // The runs live in the thread-local state, sized at init; local pointers keep the loops from
        // reloading them from it after every store.
        MosaicRun* const runs = mosaic.runs.data();
        std::size_t count = 0;
        for (std::int32_t tile = 0; tile < kc; ++tile) {
            const std::int32_t since = p - thresholds[tile];
            const std::int32_t x = tile * s;
            if (since >= -kWindow && since < kWindow) {
                MosaicRun run{MosaicRun::Kind::Flat, x, s, 0};
                std::memcpy(
                    &run.colour,
                    (since >= 0 ? f.target : f.source) + middle + static_cast<std::size_t>(x + s / 2) * 4, 4);
                runs[count++] = run;
                continue;
            }
            const auto kind = since >= 0 ? MosaicRun::Kind::Target : MosaicRun::Kind::Source;
            if (count > 0 && runs[count - 1].kind == kind)
                runs[count - 1].count += s;
            else
                runs[count++] = {kind, x, s, 0};
        }
        for (std::int32_t r = tileRow * s; r < (tileRow + 1) * s; ++r) {
            std::uint8_t* out = f.OutputRow(r);
            for (const MosaicRun& run : std::span<const MosaicRun>(runs, count)) {
                const std::size_t at = static_cast<std::size_t>(run.first) * 4;
                if (run.kind == MosaicRun::Kind::Flat)
                    std::fill_n(reinterpret_cast<std::uint32_t*>(out + at), run.count, run.colour);
                else
                    CopyShortRun(out + at,
                                 (run.kind == MosaicRun::Kind::Target ? f.TargetRow(r) : f.SourceRow(r)) + at,
                                 run.count);
            }
        }
    }
}

} // namespace

std::int32_t Mosaic(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        if (const auto frame = ReadFrame(params)) {
            mosaic.Make(*frame);
            mosaic.runs.resize(static_cast<std::size_t>(mosaic.kc));
            mosaic.tiles.resize(static_cast<std::size_t>(mosaic.kc));
            mosaic.flats.resize(static_cast<std::size_t>(mosaic.kc) * static_cast<std::size_t>(mosaic.s));
        }
        return 0;
    }
    if (message == EffectRelease) {
        mosaic = {};
        return 0;
    }
    return Stateless<RenderMosaic>(message, params);
}

std::int32_t Wave(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        if (const auto frame = ReadFrame(params)) {
            wave.w = frame->w;
            wave.h = frame->h;
            wave.edges.assign(static_cast<std::size_t>(std::max(frame->w, frame->h)), 0);
        }
        return 0;
    }
    if (message == EffectRelease) {
        wave = {};
        return 0;
    }
    return Stateless<RenderWave>(message, params);
}

std::int32_t BounceHeight(std::int32_t p)
{
    // Parabolic arcs as the bounce has always had them: the first ends near 19, not 0, and the third
    // peak (55) stands higher than the second (50).
    if (p <= 16)
        return 90 - p * p * 90 / 324;
    if (p <= 48)
        return 80 - (p - 32) * (p - 32) * 80 / 256;
    if (p <= 64)
        return 50 - (p - 56) * (p - 56) * 50 / 64;
    if (p <= 86)
        return 55 - (p - 75) * (p - 75) * 55 / 121;
    return 20 - (p - 90) * (p - 90) * 20 / 100;
}

std::int32_t Bounce(std::uint32_t message, void* params)
{
    return Stateless<RenderBounce>(message, params);
}
std::int32_t GradientDissolve(std::uint32_t message, void* params)
{
    return Stateless<RenderGradientDissolve>(message, params);
}
std::int32_t Burst(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        burst.ready = true;
        for (int k = 0; k < kRays; ++k) {
            burst.speed[k] = 100 + Rand() % 100;
            const double angle = 2 * std::numbers::pi * k / kRays;
            burst.cotangent[k] = k % (kRays / 2) == 0 ? 0 : std::cos(angle) / std::sin(angle);
        }
        return 0;
    }
    if (message == EffectRelease) {
        burst = {};
        return 0;
    }
    return Stateless<RenderBurst>(message, params);
}

std::int32_t PatternWipe(std::uint32_t message, void* params)
{
    return Stateless<RenderPatternWipe>(message, params);
}

std::int32_t Pixelate(std::uint32_t message, void* params)
{
    return Stateless<RenderPixelate>(message, params);
}
std::int32_t ClockWipe(std::uint32_t message, void* params)
{
    return Stateless<RenderClockWipe>(message, params);
}
std::int32_t Stretch(std::uint32_t message, void* params)
{
    return Stateless<RenderStretch>(message, params);
}
std::int32_t Squeeze(std::uint32_t message, void* params)
{
    return Stateless<RenderSqueeze>(message, params);
}
std::int32_t StretchAcross(std::uint32_t message, void* params)
{
    return Stateless<RenderStretchAcross>(message, params);
}
std::int32_t Split(std::uint32_t message, void* params)
{
    return Stateless<RenderSplit>(message, params);
}
std::int32_t ZoomIn(std::uint32_t message, void* params)
{
    return Stateless<RenderZoomIn>(message, params);
}
std::int32_t ZoomOut(std::uint32_t message, void* params)
{
    return Stateless<RenderZoomOut>(message, params);
}
std::int32_t FadeThroughBlack(std::uint32_t message, void* params)
{
    return Stateless<RenderFadeThroughBlack>(message, params);
}
std::int32_t Iris(std::uint32_t message, void* params)
{
    return Stateless<RenderIris>(message, params);
}
std::int32_t Checkerboard(std::uint32_t message, void* params)
{
    return Stateless<RenderCheckerboard>(message, params);
}

} // namespace lumenar::effects
