#include "effects/BasicTransitions.h"

#include "effects/EffectProtocol.h"
#include "effects/Random.h"
#include "effects/TransitionFrame.h"
#include "platform/Cpu.h"
#include "records/DibImage.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

namespace lumenar::effects {

namespace {

// ---- CutAtHalf ----

void RenderCutAtHalf(const Frame& f)
{
    if (f.n >= f.d / 2)
        f.CopyTarget();
    else
        f.CopySource();
}

// ---- SmearWipe ----

void RenderSmearWipe(const Frame& f)
{
    const std::int32_t p = f.Percent();
    if (p == 0) {
        f.CopySource();
        return;
    }
    const std::int32_t k = p * f.w / 100;
    const std::int32_t m = p * f.h / 100;
    switch (f.direction) {
    case kDirectionBottom:
        CopyRows(f, 0, f.target, 0, m);
        for (std::int32_t r = m; r < f.h; ++r)
            std::memcpy(f.OutputRow(r), f.TargetRow(m), f.RowBytes());
        break;
    case kDirectionTop: {
        const std::int32_t q = f.h - m;
        CopyRows(f, q, f.target, q, m);
        for (std::int32_t r = 0; r < q; ++r)
            std::memcpy(f.OutputRow(r), f.TargetRow(q - 1), f.RowBytes());
        break;
    }
    case kDirectionLeft:
        for (std::int32_t r = 0; r < f.h; ++r) {
            const auto* in = reinterpret_cast<const std::uint32_t*>(f.TargetRow(r));
            auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
            CopyPixels(f.OutputRow(r), f.TargetRow(r), k);
            if (k < f.w)
                std::fill(out + k, out + f.w, in[k]);
        }
        break;
    case kDirectionRight: {
        // Compatibility: the smeared column is the target's own column at the boundary; with nothing
        // uncovered yet that is the last column.
        const std::int32_t edge = k == 0 ? f.w - 1 : f.w - k;
        for (std::int32_t r = 0; r < f.h; ++r) {
            const auto* in = reinterpret_cast<const std::uint32_t*>(f.TargetRow(r));
            auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
            CopyPixels(f.OutputRow(r) + static_cast<std::size_t>(f.w - k) * 4,
                       f.TargetRow(r) + static_cast<std::size_t>(f.w - k) * 4, k);
            std::fill(out, out + (f.w - k), in[edge]);
        }
        break;
    }
    default:
        break; // Unknown directions draw nothing.
    }
}

// ---- BoxWipe ----

void RenderBoxWipe(const Frame& f)
{
    const std::int32_t a = static_cast<std::int32_t>(static_cast<std::int64_t>(f.n) * (f.w / 2) / f.d);
    const std::int32_t b = static_cast<std::int32_t>(static_cast<std::int64_t>(f.h / 2) * f.n / f.d);
    std::int32_t x, y;
    const std::uint8_t* frame;
    const std::uint8_t* box;
    if (f.variant == 1) {
        x = f.w / 2 - a;
        y = f.h / 2 - b;
        frame = f.source;
        box = f.target;
    } else {
        x = a;
        y = b;
        frame = f.target;
        box = f.source;
    }
    CopyRows(f, 0, frame, 0, y);
    CopyRows(f, f.h - y, frame, f.h - y, y);
    for (std::int32_t r = y; r < f.h - y; ++r) {
        const std::size_t offset = f.RowBytes() * static_cast<std::size_t>(r);
        const std::size_t right = static_cast<std::size_t>(f.w - x) * 4;
        CopyPixels(f.output + offset, frame + offset, x);
        CopyPixels(f.output + offset + static_cast<std::size_t>(x) * 4,
                   box + offset + static_cast<std::size_t>(x) * 4, f.w - 2 * x);
        CopyPixels(f.output + offset + right, frame + offset + right, x);
    }
}

// ---- TileDissolve ----

// The family's working state from init to release. A transition's init, frames and release all run on
// one playback thread, and each player has its own, so the state is the thread's: two players in one
// process can dissolve at the same time without sharing thresholds.
struct TileDissolveState : TileGrid
{
    std::vector<ColourRun> runs; // One tile row's runs of tiles showing the same picture.
};
thread_local TileDissolveState tileDissolve;

void InitTileDissolve(const Frame& f)
{
    tileDissolve.Make(f);
    tileDissolve.runs.reserve(static_cast<std::size_t>(tileDissolve.kc));
}

void RenderTileDissolve(const Frame& f)
{
    const std::int32_t p = f.Percent();
    if (p == 0)
        f.CopySource();
    if (p == 100)
        f.CopyTarget();
    if (p < 1)
        return;
    TileDissolveState& st = tileDissolve;
    // Without a matching init there are no thresholds for these pictures: nothing more to draw.
    if (!st.Fits(f))
        return;
    const bool avx2 = BlendAvx2Built() && platform::Simd().avx2;
    const bool sse2 = CrossFadeSse2Built() && platform::Simd().sse2;
    for (std::int32_t tileRow = 0; tileRow < st.kr; ++tileRow) {
        const std::int32_t* thresholds =
            st.thresholds.data() + static_cast<std::size_t>(tileRow) * static_cast<std::size_t>(st.kc);
        // Neighbouring tiles that show the same picture are copied as one run.
        st.runs.clear();
        for (std::int32_t tileColumn = 0; tileColumn < st.kc; ++tileColumn) {
            const bool showsTarget = thresholds[tileColumn] <= p;
            if (st.runs.empty() || st.runs.back().fromTarget != showsTarget)
                st.runs.push_back({tileColumn * st.s, 0, showsTarget});
            st.runs.back().count += st.s;
        }
        for (std::int32_t r = tileRow * st.s; r < (tileRow + 1) * st.s; ++r) {
            auto* out = reinterpret_cast<std::uint32_t*>(f.OutputRow(r));
            const auto* src = reinterpret_cast<const std::uint32_t*>(f.SourceRow(r));
            const auto* tgt = reinterpret_cast<const std::uint32_t*>(f.TargetRow(r));
            if (avx2)
                CopyColourRunsAvx2(src, tgt, out, st.runs);
            else if (sse2)
                CopyColourRunsSse2(src, tgt, out, st.runs);
            else
                CopyColourRunsPortable(src, tgt, out, st.runs);
        }
    }
}

std::int32_t TileDissolveProc(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        if (const auto frame = ReadFrame(params))
            InitTileDissolve(*frame);
        return 0;
    }
    if (message == EffectRelease) {
        tileDissolve.thresholds = {};
        tileDissolve.runs = {};
        return 0;
    }
    if (!IsRenderMessage(message))
        return 0;
    if (const auto frame = ReadFrame(params))
        RenderTileDissolve(*frame);
    return 0;
}

// ---- Edge family: Wipe, SlideIn, Push ----

enum class EdgeKind
{
    Wipe,
    SlideIn,
    Push
};

// Fills output pixels [outFirst, outFirst + count) of rows [r0, r1) from `picture` pixels starting at
// `pictureFirst` of the same rows.
void HorizontalRun(const Frame& f, std::int32_t r0, std::int32_t r1, const std::uint8_t* picture,
                   std::int32_t outFirst, std::int32_t pictureFirst, std::int32_t count)
{
    if (count <= 0)
        return;
    for (std::int32_t r = r0; r < r1; ++r) {
        const std::size_t row = f.RowBytes() * static_cast<std::size_t>(r);
        CopyPixels(f.output + row + static_cast<std::size_t>(outFirst) * 4,
                   picture + row + static_cast<std::size_t>(pictureFirst) * 4, count);
    }
}

// Fills output rows [outFirst, outFirst + count) of columns [c0, c1) from `picture` rows from `pictureFirst`.
void VerticalRun(const Frame& f, std::int32_t c0, std::int32_t c1, const std::uint8_t* picture,
                 std::int32_t outFirst, std::int32_t pictureFirst, std::int32_t count)
{
    for (std::int32_t i = 0; i < count; ++i) {
        const std::size_t out =
            f.RowBytes() * static_cast<std::size_t>(outFirst + i) + static_cast<std::size_t>(c0) * 4;
        const std::size_t in =
            f.RowBytes() * static_cast<std::size_t>(pictureFirst + i) + static_cast<std::size_t>(c0) * 4;
        CopyPixels(f.output + out, picture + in, c1 - c0);
    }
}

struct EdgeOffsets
{
    std::int32_t dx, dy, rw, rh;
};

void FromLeft(const Frame& f, EdgeKind kind, const EdgeOffsets& e, std::int32_t r0, std::int32_t r1)
{
    HorizontalRun(f, r0, r1, f.target, 0, kind == EdgeKind::Wipe ? 0 : e.rw, e.dx);
    HorizontalRun(f, r0, r1, f.source, e.dx, kind == EdgeKind::Push ? 0 : e.dx, e.rw);
}

void FromRight(const Frame& f, EdgeKind kind, const EdgeOffsets& e, std::int32_t r0, std::int32_t r1)
{
    HorizontalRun(f, r0, r1, f.source, 0, kind == EdgeKind::Push ? e.dx : 0, e.rw);
    HorizontalRun(f, r0, r1, f.target, e.rw, kind == EdgeKind::Wipe ? e.rw : 0, e.dx);
}

void FromTop(const Frame& f, EdgeKind kind, const EdgeOffsets& e, std::int32_t c0, std::int32_t c1)
{
    VerticalRun(f, c0, c1, f.source, 0, kind == EdgeKind::Push ? e.dy : 0, e.rh);
    VerticalRun(f, c0, c1, f.target, e.rh, kind == EdgeKind::Wipe ? e.rh : 0, e.dy);
}

void FromBottom(const Frame& f, EdgeKind kind, const EdgeOffsets& e, std::int32_t c0, std::int32_t c1)
{
    VerticalRun(f, c0, c1, f.target, 0, kind == EdgeKind::Wipe ? 0 : e.rh, e.dy);
    VerticalRun(f, c0, c1, f.source, e.dy, kind == EdgeKind::Push ? 0 : e.dy, e.rh);
}

using EdgeRun = void (*)(const Frame&, EdgeKind, const EdgeOffsets&, std::int32_t, std::int32_t);

// Cuts `extent` rows or columns into `variant` bands: band j spans j × extent / variant up to the next
// band, and even bands enter one way, odd bands the other. Fewer than one band draws nothing.
void Bands(const Frame& f, EdgeKind kind, const EdgeOffsets& e, std::int32_t extent, EdgeRun even,
           EdgeRun odd)
{
    for (std::int32_t j = 0; j < f.variant; ++j) {
        const auto first = static_cast<std::int32_t>(static_cast<std::int64_t>(j) * extent / f.variant);
        const auto end = static_cast<std::int32_t>(static_cast<std::int64_t>(j + 1) * extent / f.variant);
        (j % 2 == 0 ? even : odd)(f, kind, e, first, end);
    }
}

template <EdgeKind kind> void RenderEdge(const Frame& f)
{
    const std::int32_t p = f.Percent();
    const double t = static_cast<double>(f.n) / f.d;
    const double curve = kind == EdgeKind::Push ? t : t * t * t;
    EdgeOffsets e;
    e.dx = std::clamp(static_cast<std::int32_t>(f.w * curve), 0, f.w);
    e.dy = std::clamp(static_cast<std::int32_t>(f.h * curve), 0, f.h);
    e.rw = f.w - e.dx;
    e.rh = f.h - e.dy;
    if (DrawEnd(f, p))
        return;
    switch (f.direction) {
    case kDirectionLeft:
        FromLeft(f, kind, e, 0, f.h);
        break;
    case kDirectionTop:
        FromTop(f, kind, e, 0, f.w);
        break;
    case kDirectionRight:
        // Bands of rows, entered alternately from the right and the left.
        Bands(f, kind, e, f.h, FromRight, FromLeft);
        break;
    case kDirectionBottom:
        // Bands of columns, entered alternately from the bottom and the top, each within its columns.
        Bands(f, kind, e, f.w, FromBottom, FromTop);
        break;
    default:
        break;
    }
}

// ---- Blinds ----

void RenderBlinds(const Frame& f)
{
    const std::int32_t p = f.Percent();
    if (DrawEnd(f, p))
        return;
    const std::int32_t m = std::clamp(f.variant, 1, 80);
    switch (f.direction) {
    case kDirectionBottom:
    case kDirectionTop: {
        // Compatibility: horizontal slats size their fill from the fraction in single precision,
        // vertical ones from the integer percentage, so the two step slightly differently.
        const double t = f.SingleT();
        const std::int32_t k = f.direction == kDirectionBottom
                                   ? static_cast<std::int32_t>(f.h * t / m)
                                   : static_cast<std::int32_t>((1.0 - t) * f.h / m);
        for (std::int32_t i = 0; i < m; ++i) {
            const auto first = static_cast<std::int32_t>(static_cast<std::int64_t>(i) * f.h / m);
            const auto end =
                i == m - 1 ? f.h : static_cast<std::int32_t>(static_cast<std::int64_t>(i + 1) * f.h / m);
            const std::int32_t split = std::clamp(first + k, first, end);
            const std::uint8_t* below = f.direction == kDirectionBottom ? f.target : f.source;
            const std::uint8_t* above = f.direction == kDirectionBottom ? f.source : f.target;
            CopyRows(f, first, below, first, split - first);
            CopyRows(f, split, above, split, end - split);
        }
        break;
    }
    case kDirectionLeft:
    case kDirectionRight: {
        const std::int32_t k = p * f.w / 100 / m;
        for (std::int32_t i = 0; i < m; ++i) {
            const auto first = static_cast<std::int32_t>(static_cast<std::int64_t>(i) * f.w / m);
            const auto end = static_cast<std::int32_t>(static_cast<std::int64_t>(i + 1) * f.w / m);
            const std::int32_t filled = std::clamp(k, 0, end - first);
            if (f.direction == kDirectionLeft) {
                HorizontalRun(f, 0, f.h, f.target, first, first, filled);
                HorizontalRun(f, 0, f.h, f.source, first + filled, first + filled, end - first - filled);
            } else {
                HorizontalRun(f, 0, f.h, f.source, first, first, end - first - filled);
                HorizontalRun(f, 0, f.h, f.target, end - filled, end - filled, filled);
            }
        }
        break;
    }
    default:
        break;
    }
}

// ---- OutAndBack ----

void BlackRows(const Frame& f, std::int32_t first, std::int32_t count)
{
    if (count > 0)
        std::memset(f.OutputRow(first), 0, f.RowBytes() * static_cast<std::size_t>(count));
}

void BlackPixels(const Frame& f, std::int32_t first, std::int32_t count)
{
    if (count <= 0)
        return;
    for (std::int32_t r = 0; r < f.h; ++r)
        std::memset(f.OutputRow(r) + static_cast<std::size_t>(first) * 4, 0,
                    static_cast<std::size_t>(count) * 4);
}

void RenderOutAndBack(const Frame& f)
{
    const double t = f.SingleT();
    const bool firstHalf = t <= 0.5;
    const std::uint8_t* picture = firstHalf ? f.source : f.target;
    auto trunc = [](double v, std::int32_t limit) {
        return std::clamp(static_cast<std::int32_t>(v), 0, limit);
    };
    switch (f.direction) {
    case kDirectionBottom: {
        const std::int32_t k = trunc(2.0 * f.h * (firstHalf ? t : 1.0 - t), f.h);
        BlackRows(f, 0, k);
        CopyRows(f, k, picture, 0, f.h - k);
        break;
    }
    case kDirectionLeft: {
        const std::int32_t k = trunc(2.0 * f.w * (firstHalf ? t : 1.0 - t), f.w);
        BlackPixels(f, 0, k);
        HorizontalRun(f, 0, f.h, picture, k, 0, f.w - k);
        break;
    }
    case kDirectionTop: {
        const std::int32_t k = trunc(2.0 * f.h * (firstHalf ? 0.5 - t : t - 0.5), f.h);
        CopyRows(f, 0, picture, f.h - k, k);
        BlackRows(f, k, f.h - k);
        break;
    }
    case kDirectionRight: {
        const std::int32_t k = trunc(2.0 * f.w * (firstHalf ? 0.5 - t : t - 0.5), f.w);
        HorizontalRun(f, 0, f.h, picture, 0, f.w - k, k);
        BlackPixels(f, k, f.w - k);
        break;
    }
    default:
        break;
    }
}

// ---- CrossFade ----

void RenderCrossFade(const Frame& f)
{
    const int a = static_cast<int>(static_cast<std::int64_t>(f.n) * 127 / f.d);
    if (BlendAvx2Built() && platform::Simd().avx2)
        CrossFadeBytesAvx2(f.source, f.target, f.output, f.Bytes(), a);
    else if (CrossFadeSse2Built() && platform::Simd().sse2)
        CrossFadeBytesSse2(f.source, f.target, f.output, f.Bytes(), a);
    else
        CrossFadeBytesPortable(f.source, f.target, f.output, f.Bytes(), a);
}

} // namespace

void CrossFadeBytesPortable(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                            std::size_t count, int a)
{
    const int weight = 127 - a;
    for (std::size_t i = 0; i < count; ++i) {
        const int t = target[i];
        const int value = t + (((source[i] - t) * weight) >> 7);
        output[i] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
    }
}

void ScaleBytesPortable(const std::uint8_t* input, std::uint8_t* output, std::size_t count,
                        std::uint32_t level)
{
    // Eight bytes at a time, every other byte in a 16-bit lane: 255 × 256 still fits a lane.
    constexpr std::uint64_t kLanes = 0x00FF00FF00FF00FFull;
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, input + i, 8);
        const std::uint64_t even = ((word & kLanes) * level >> 8) & kLanes;
        const std::uint64_t odd = ((word >> 8) & kLanes) * level & ~kLanes;
        word = even | odd;
        std::memcpy(output + i, &word, 8);
    }
    for (; i < count; ++i)
        output[i] = static_cast<std::uint8_t>((input[i] * level) >> 8);
}

void BlendRampPortable(const std::uint8_t* source, const std::uint8_t* target, std::uint8_t* output,
                       std::int32_t count, std::int64_t start, std::int64_t step)
{
    for (std::int32_t i = 0; i < count; ++i) {
        const auto w = static_cast<std::int32_t>(std::clamp<std::int64_t>((start + i * step) >> 16, 0, 256));
        for (int byte = i * 4; byte < i * 4 + 4; ++byte)
            output[byte] =
                static_cast<std::uint8_t>(source[byte] + (((target[byte] - source[byte]) * w) >> 8));
    }
}

BlendRampForm BlendRamp()
{
    return CrossFadeSse2Built() && platform::Simd().sse2 ? &BlendRampSse2 : &BlendRampPortable;
}

void CopyColourRunsPortable(const std::uint32_t* source, const std::uint32_t* target, std::uint32_t* output,
                            std::span<const ColourRun> runs)
{
    for (const ColourRun& run : runs) {
        const std::uint32_t* from = (run.fromTarget ? target : source) + run.first;
        for (std::int32_t x = 0; x < run.count; ++x)
            output[run.first + x] = (output[run.first + x] & 0xFF000000u) | (from[x] & 0x00FFFFFFu);
    }
}

std::int32_t CutAtHalf(std::uint32_t message, void* params)
{
    return Stateless<RenderCutAtHalf>(message, params);
}
std::int32_t SmearWipe(std::uint32_t message, void* params)
{
    return Stateless<RenderSmearWipe>(message, params);
}
std::int32_t BoxWipe(std::uint32_t message, void* params)
{
    return Stateless<RenderBoxWipe>(message, params);
}
std::int32_t TileDissolve(std::uint32_t message, void* params)
{
    return TileDissolveProc(message, params);
}
std::int32_t Wipe(std::uint32_t message, void* params)
{
    return Stateless<RenderEdge<EdgeKind::Wipe>>(message, params);
}
std::int32_t SlideIn(std::uint32_t message, void* params)
{
    return Stateless<RenderEdge<EdgeKind::SlideIn>>(message, params);
}
std::int32_t Push(std::uint32_t message, void* params)
{
    return Stateless<RenderEdge<EdgeKind::Push>>(message, params);
}
std::int32_t Blinds(std::uint32_t message, void* params)
{
    return Stateless<RenderBlinds>(message, params);
}
std::int32_t OutAndBack(std::uint32_t message, void* params)
{
    return Stateless<RenderOutAndBack>(message, params);
}
std::int32_t CrossFade(std::uint32_t message, void* params)
{
    return Stateless<RenderCrossFade>(message, params);
}

} // namespace lumenar::effects
