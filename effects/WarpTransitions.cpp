#include "effects/WarpTransitions.h"

#include "effects/BasicTransitions.h"
#include "effects/TransitionFrame.h"
#include "effects/WarpCells.h"
#include "platform/Cpu.h"

#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <span>
#include <vector>

namespace lumenar::effects {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Every warp here is a backward map: for each output pixel it finds the place in the source or the
// target that the pixel shows, and takes the nearest sample there, held inside the part of the picture
// being drawn. Distances and angles are turned into tables at init (per pixel) or once a frame (per
// radius), so the pixel loops only look up, multiply in 16.16 and clamp.

// Sines of one turn in 16.16: frames turn angles into rotations without trigonometry.
constexpr int kTurnSteps = 16384;
const std::array<std::int32_t, kTurnSteps>& Sines()
{
    // Built on first use (thread-safe static initialisation) and only read afterwards.
    static const std::array<std::int32_t, kTurnSteps> sines = [] {
        std::array<std::int32_t, kTurnSteps> table{};
        for (int i = 0; i < kTurnSteps; ++i)
            table[static_cast<std::size_t>(i)] =
                static_cast<std::int32_t>(std::lround(std::sin(2 * kPi * i / kTurnSteps) * 65536));
        return table;
    }();
    return sines;
}

// A rotation in 16.16.
struct Turn
{
    std::int32_t cos = 65536;
    std::int32_t sin = 0;
    bool Still() const { return cos == 65536 && sin == 0; }
};

Turn TurnBy(double turns)
{
    const auto& sines = Sines();
    const std::int64_t step = std::llround(turns * kTurnSteps) % kTurnSteps;
    const auto i = static_cast<std::size_t>(step < 0 ? step + kTurnSteps : step);
    return {sines[(i + kTurnSteps / 4) % kTurnSteps], sines[i]};
}

// sin(2π turns) in double, from the same table.
double SineOf(double turns)
{
    return TurnBy(turns).sin / 65536.0;
}

// 0 below 0, 1 above 1, and an S-curve between.
double Smooth(double x)
{
    x = std::clamp(x, 0.0, 1.0);
    return x * x * (3 - 2 * x);
}

// A rectangle of the picture that a warp draws on its own, about its own centre, sampling only inside
// itself. Offsets from the centre are doubled pixel centres (2x + 1 − CentreX2()) so that odd sizes
// keep an exact centre.
struct Region
{
    std::int32_t x0 = 0; // First column.
    std::int32_t r0 = 0; // First memory row.
    std::int32_t w = 0;
    std::int32_t h = 0;

    std::int64_t CentreX2() const { return 2 * static_cast<std::int64_t>(x0) + w; }
    std::int64_t CentreR2() const { return 2 * static_cast<std::int64_t>(r0) + h; }
    bool Empty() const { return w <= 0 || h <= 0; }
    double HalfDiagonal() const
    {
        return std::sqrt(static_cast<double>(w) * w + static_cast<double>(h) * h) / 2;
    }
};

// The whole picture, or its quarters split at half width and half height (rounded down): the one at
// the origin (bottom left), the one above it, the one to its right, the opposite one. A quarter may be
// empty in a picture one pixel wide or high.
int Regions(std::int32_t w, std::int32_t h, bool quarters, Region (&out)[4])
{
    if (!quarters) {
        out[0] = {0, 0, w, h};
        return 1;
    }
    const std::int32_t hw = w / 2, hh = h / 2;
    out[0] = {0, 0, hw, hh};
    out[1] = {0, hh, hw, h - hh};
    out[2] = {hw, 0, w - hw, hh};
    out[3] = {hw, hh, w - hw, h - hh};
    return 4;
}

// The nearest pixel to a point given in 16.16 doubled offsets from the region's centre, held inside
// the region.
std::uint32_t SampleAt(const Frame& f, const std::uint32_t* picture, const Region& g, std::int64_t x2,
                       std::int64_t r2)
{
    // (offset + centre) / 2 rounded to nearest is floor((offset + centre) / 2) for a doubled offset.
    const std::int64_t x = std::clamp<std::int64_t>((x2 + (g.CentreX2() << 16)) >> 17, g.x0, g.x0 + g.w - 1);
    const std::int64_t r = std::clamp<std::int64_t>((r2 + (g.CentreR2() << 16)) >> 17, g.r0, g.r0 + g.h - 1);
    return picture[static_cast<std::size_t>(r) * static_cast<std::size_t>(f.w) + static_cast<std::size_t>(x)];
}

std::uint32_t SampleTurned(const Frame& f, const std::uint32_t* picture, const Region& g, std::int64_t dx2,
                           std::int64_t dr2, Turn t)
{
    return SampleAt(f, picture, g, dx2 * t.cos - dr2 * t.sin, dx2 * t.sin + dr2 * t.cos);
}

// `from` weighed with 256 − weight against `to` with weight, all four bytes in two 16-bit lanes of
// one word: 255 × 256 still fits a lane.
std::uint32_t Blend(std::uint32_t from, std::uint32_t to, std::uint32_t weight)
{
    const std::uint32_t keep = 256 - weight;
    const std::uint32_t low =
        (((from & 0x00FF00FFu) * keep + (to & 0x00FF00FFu) * weight) >> 8) & 0x00FF00FFu;
    const std::uint32_t high =
        (((from >> 8) & 0x00FF00FFu) * keep + ((to >> 8) & 0x00FF00FFu) * weight) & 0xFF00FF00u;
    return low | high;
}

const std::uint32_t* Pixels(const std::uint8_t* picture)
{
    return reinterpret_cast<const std::uint32_t*>(picture);
}

// A warp's parameters as the preset lists give them; each family says what they mean.
struct Triple
{
    double a, b, c;
};

// The next preset of the swirl and the spiral: process-wide, advanced at every release of the row, so
// that consecutive uses look different. Atomic because players on different threads share it.
std::atomic<int> swirlPreset{0};
std::atomic<int> spiralPreset{0};

void Advance(std::atomic<int>& preset, int count)
{
    int current = preset.load();
    while (!preset.compare_exchange_weak(current, (current + 1) % count)) {
    }
}

// Each pixel's distance from its region's centre in steps of a fraction of a pixel, at most the region's
// limit, made at init so that frames look it up instead of taking square roots. A step is a quarter
// pixel unless the limits are so far that the per-step tables would pass kMaxSteps.
struct RadiusMap
{
    static constexpr double kMaxSteps = 8192;
    double stepsPerPixel = 4;
    std::int32_t limits[4] = {};      // Per region, in steps.
    std::vector<std::uint16_t> steps; // Per pixel, memory order.

    void Make(std::int32_t w, std::int32_t h, std::span<const Region> regions,
              std::span<const double> limitPixels)
    {
        double farthest = 1;
        for (double limit : limitPixels)
            farthest = std::max(farthest, limit);
        stepsPerPixel = std::min(4.0, kMaxSteps / farthest);
        steps.assign(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), 0);
        for (std::size_t i = 0; i < regions.size(); ++i) {
            const Region& g = regions[i];
            limits[i] = std::max(1, static_cast<std::int32_t>(std::ceil(limitPixels[i] * stepsPerPixel)));
            for (std::int32_t r = g.r0; r < g.r0 + g.h; ++r) {
                const double dr2 = 2.0 * r + 1 - static_cast<double>(g.CentreR2());
                std::uint16_t* row = steps.data() + static_cast<std::size_t>(r) * static_cast<std::size_t>(w);
                for (std::int32_t x = g.x0; x < g.x0 + g.w; ++x) {
                    const double dx2 = 2.0 * x + 1 - static_cast<double>(g.CentreX2());
                    const double distance = std::sqrt(dx2 * dx2 + dr2 * dr2) / 2;
                    row[x] = static_cast<std::uint16_t>(
                        std::min<long>(limits[i], std::lround(distance * stepsPerPixel)));
                }
            }
        }
    }
    std::int32_t LargestLimit() const { return *std::max_element(std::begin(limits), std::end(limits)); }
};

// The swirl. For a triple (a, b, c):
// - a: half turns by which the source has wound up at its centre when it has gone, signed
//   (positive counter-clockwise on screen);
// - b: half turns through which the target unwinds into place at its centre, signed the same way:
//   with the sign of a the spin carries on through the change of picture, against it it swings back;
// - c: the radius of the swirl in percent of the half diagonal; the turn falls off with the square of
//   the distance towards it, and nothing turns beyond it.
// The source winds up over the first 60 % and the target unwinds over the last 60 %; between 35 and
// 65 % the two wound pictures blend.
constexpr Triple kSwirlPresets[kSwirlPresetCount] = {
    {2, 1, 50},  {-4, 3, 175}, {5, -3, 200}, {-2, 1, 50}, {1, 1, 75},   {2, -1, 100}, {-3, 1, 175},
    {7, -1, 75}, {3, 1, 125},  {-5, 1, 75},  {2, 1, 100}, {-2, 1, 100}, {10, 1, 200},
};
constexpr Triple kSwirlQuarters[4] = {{-4, -3, 100}, {-4, 3, 100}, {4, -3, 100}, {4, 3, 100}};

// One cell of a mesh: the pixels from its bottom-left node up to the next nodes (the last cell of a row
// or column takes the last node's pixels too).
struct Cell
{
    std::int32_t first, last;  // Columns, inclusive.
    std::int32_t top, lastRow; // Memory rows, inclusive.
    std::int32_t wide, tall;   // Pixels between its nodes, at least 1.
    std::uint32_t node;        // Its bottom-left node.
    std::uint32_t above;       // The node above that.

    std::int32_t Pixels() const { return last - first + 1; }
    std::int32_t Rows() const { return lastRow - top + 1; }
};

// A warp that moves smoothly over the picture is worked out only at the nodes of a grid of kCell-pixel
// cells and followed linearly between them, so a pixel costs two additions and a load. The nodes'
// sample positions are held inside the region, so every position between them is too. Cells are drawn
// whole, ring by ring out from the centre: the warps turn pictures about the centre or move them along
// its radii, so a ring of cells samples a ring of the picture that stays in the cache, where a row of
// pixels across a strong swirl would take each sample from another place in memory.
struct Mesh
{
    static constexpr std::int32_t kCell = 8;
    std::int32_t across = 0;         // Nodes per row.
    std::int32_t down = 0;           // Rows of nodes.
    std::vector<std::int32_t> x, y;  // Per node: where it samples, 16.16 with the half pixel added.
    std::vector<std::uint8_t> still; // Per node: 1 where it samples its own pixel.
    std::vector<Cell> cells;         // Nearest the centre first.

    // The node positions of a side of `length` pixels from `first`: every kCell-th and the last.
    static std::int32_t Nodes(std::int32_t length)
    {
        return std::max(2, (length - 1 + kCell - 1) / kCell + 1);
    }
    static std::int32_t At(std::int32_t first, std::int32_t length, std::int32_t node)
    {
        return first + std::min(node * kCell, std::max(0, length - 1));
    }
    std::size_t Node(std::int32_t i, std::int32_t j) const
    {
        return static_cast<std::size_t>(j) * static_cast<std::size_t>(across) + static_cast<std::size_t>(i);
    }
    void Make(const Region& g)
    {
        across = Nodes(g.w);
        down = Nodes(g.h);
        x.assign(static_cast<std::size_t>(across) * static_cast<std::size_t>(down), 0);
        y.assign(x.size(), 0);
        still.assign(x.size(), 0);
        cells.clear();
        std::vector<std::int64_t> distance;
        for (std::int32_t j = 0; j + 1 < down; ++j) {
            for (std::int32_t i = 0; i + 1 < across; ++i) {
                Cell c;
                c.first = At(g.x0, g.w, i);
                const std::int32_t next = At(g.x0, g.w, i + 1);
                c.last = i + 2 == across ? next : next - 1;
                c.top = At(g.r0, g.h, j);
                const std::int32_t bottom = At(g.r0, g.h, j + 1);
                c.lastRow = j + 2 == down ? bottom : bottom - 1;
                c.wide = std::max(1, next - c.first);
                c.tall = std::max(1, bottom - c.top);
                c.node = static_cast<std::uint32_t>(Node(i, j));
                c.above = static_cast<std::uint32_t>(Node(i, j + 1));
                cells.push_back(c);
                const std::int64_t dx = 2 * static_cast<std::int64_t>(c.first) + c.wide - g.CentreX2();
                const std::int64_t dr = 2 * static_cast<std::int64_t>(c.top) + c.tall - g.CentreR2();
                distance.push_back(dx * dx + dr * dr);
            }
        }
        std::vector<std::uint32_t> rank(cells.size());
        for (std::size_t k = 0; k < rank.size(); ++k)
            rank[k] = static_cast<std::uint32_t>(k);
        std::sort(rank.begin(), rank.end(), [&](std::uint32_t p, std::uint32_t q) {
            return distance[p] != distance[q] ? distance[p] < distance[q] : p < q;
        });
        std::vector<Cell> sorted;
        sorted.reserve(cells.size());
        for (std::uint32_t k : rank)
            sorted.push_back(cells[k]);
        cells.swap(sorted);
    }
    bool Still(const Cell& c) const
    {
        return (still[c.node] & still[c.node + 1] & still[c.above] & still[c.above + 1]) != 0;
    }
    // Sets a node from a position in pixels, held inside the region.
    void Set(const Region& g, std::size_t node, double px, double pr)
    {
        x[node] = static_cast<std::int32_t>(
            std::clamp(std::floor((px + 0.5) * 65536), g.x0 * 65536.0, (g.x0 + g.w) * 65536.0 - 1));
        y[node] = static_cast<std::int32_t>(
            std::clamp(std::floor((pr + 0.5) * 65536), g.r0 * 65536.0, (g.r0 + g.h) * 65536.0 - 1));
        still[node] = 0;
    }
    // Sets a node that samples its own pixel, (i, j) being its place in the grid.
    void SetStill(const Region& g, std::size_t node, std::int32_t i, std::int32_t j)
    {
        x[node] = At(g.x0, g.w, i) * 65536 + 32768;
        y[node] = At(g.r0, g.h, j) * 65536 + 32768;
        still[node] = 1;
    }
};

// Whole cells divide by a constant.
std::int32_t PerPixel(std::int32_t distance, std::int32_t pixels)
{
    return pixels == Mesh::kCell ? distance / Mesh::kCell : distance / pixels;
}

// The sample positions along a cell's rows.
CellPath PathOf(const Mesh& m, const Cell& c)
{
    const std::size_t n00 = c.node, n10 = n00 + 1, n01 = c.above, n11 = n01 + 1;
    return {m.x[n00],
            m.y[n00],
            m.x[n10],
            m.y[n10],
            PerPixel(m.x[n01] - m.x[n00], c.tall),
            PerPixel(m.y[n01] - m.y[n00], c.tall),
            PerPixel(m.x[n11] - m.x[n10], c.tall),
            PerPixel(m.y[n11] - m.y[n10], c.tall),
            c.wide};
}

// Follows a path a row at a time.
class PathWalk
{
public:
    explicit PathWalk(const CellPath& path) : p_(path) {}
    void StartRow()
    {
        dx_ = PerPixel(p_.rx - p_.lx, p_.wide);
        dy_ = PerPixel(p_.ry - p_.ly, p_.wide);
        x_ = p_.lx;
        y_ = p_.ly;
    }
    // The next pixel's sample, as an index into a picture `width` pixels wide.
    std::size_t Next(std::size_t width)
    {
        const std::size_t at =
            static_cast<std::size_t>(y_ >> 16) * width + static_cast<std::size_t>(x_ >> 16);
        x_ += dx_;
        y_ += dy_;
        return at;
    }
    void EndRow()
    {
        p_.lx += p_.slx;
        p_.ly += p_.sly;
        p_.rx += p_.srx;
        p_.ry += p_.sry;
    }

private:
    CellPath p_;
    std::int32_t x_ = 0, y_ = 0, dx_ = 0, dy_ = 0;
};

} // namespace

void SampleCellPortable(const CellPath& path, const std::uint32_t* picture, std::size_t width,
                        std::uint32_t* out, std::size_t pitch, std::int32_t count, std::int32_t rows)
{
    PathWalk walk(path);
    for (std::int32_t k = 0; k < rows; ++k, out += pitch) {
        walk.StartRow();
        for (std::int32_t i = 0; i < count; ++i)
            out[i] = picture[walk.Next(width)];
        walk.EndRow();
    }
}

void SampleCellBlendedPortable(const CellPath& from, const std::uint32_t* source, const CellPath& to,
                               const std::uint32_t* target, std::size_t width, std::uint32_t* out,
                               std::size_t pitch, std::int32_t count, std::int32_t rows, std::int32_t weight)
{
    PathWalk s(from), t(to);
    for (std::int32_t k = 0; k < rows; ++k, out += pitch) {
        s.StartRow();
        t.StartRow();
        for (std::int32_t i = 0; i < count; ++i) {
            const std::uint32_t a = source[s.Next(width)], b = target[t.Next(width)];
            std::uint32_t mixed = 0;
            for (int shift = 0; shift < 32; shift += 8) {
                const auto sa = static_cast<std::int32_t>((a >> shift) & 0xFF);
                const auto tb = static_cast<std::int32_t>((b >> shift) & 0xFF);
                mixed |= static_cast<std::uint32_t>(sa + (((tb - sa) * weight) >> 8)) << shift;
            }
            out[i] = mixed;
        }
        s.EndRow();
        t.EndRow();
    }
}

CellSampler ChooseCellSampler()
{
    if (WarpAvx2Built() && platform::Simd().avx2)
        return {&SampleCellAvx2, &SampleCellBlendedAvx2};
    return {&SampleCellPortable, &SampleCellBlendedPortable};
}

namespace {

// Draws a cell of `picture` through the mesh into `out` (its first pixel), whose rows are `pitch` pixels
// apart; copied row by row where the cell does not move.
void DrawCell(const CellSampler& sampler, const Mesh& m, const Cell& c, const std::uint32_t* picture,
              std::size_t width, std::uint32_t* out, std::size_t pitch)
{
    const std::int32_t count = c.Pixels(), rows = c.Rows();
    if (m.Still(c)) {
        const std::uint32_t* in =
            picture + static_cast<std::size_t>(c.top) * width + static_cast<std::size_t>(c.first);
        for (std::int32_t k = 0; k < rows; ++k, out += pitch, in += width)
            std::memcpy(out, in, static_cast<std::size_t>(count) * 4);
        return;
    }
    sampler.sample(PathOf(m, c), picture, width, out, pitch, count, rows);
}

std::uint32_t* OutputAt(const Frame& f, std::int32_t x, std::int32_t r)
{
    return reinterpret_cast<std::uint32_t*>(f.OutputRow(r)) + x;
}

// Draws a region of `picture` through the mesh into the output.
void DrawMesh(const Frame& f, const Mesh& m, const std::uint32_t* picture)
{
    const CellSampler sampler = ChooseCellSampler();
    const auto width = static_cast<std::size_t>(f.w);
    for (const Cell& c : m.cells)
        DrawCell(sampler, m, c, picture, width, OutputAt(f, c.first, c.top), width);
}

// Draws a region blended from `source` through m0 and `target` through m1 (meshes of the same grid),
// `weight` of 256 towards the target.
void DrawMeshesBlended(const Frame& f, const Mesh& m0, const std::uint32_t* source, const Mesh& m1,
                       const std::uint32_t* target, std::uint32_t weight)
{
    const CellSampler sampler = ChooseCellSampler();
    const auto width = static_cast<std::size_t>(f.w);
    for (const Cell& c : m0.cells)
        sampler.blended(PathOf(m0, c), source, PathOf(m1, c), target, width, OutputAt(f, c.first, c.top),
                        width, c.Pixels(), c.Rows(), static_cast<std::int32_t>(weight));
}

// From init to release (the playback thread's, as every transition's state is).
struct SwirlState
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    int regionCount = 0;
    Region regions[4];
    Triple triples[4] = {};
    Mesh source[4]; // One frame's sample positions per region.
    Mesh target[4];
};
thread_local SwirlState swirl;

void DrawSwirl(const Frame& f, const Region& g, const Triple& triple, Mesh& sourceMesh, Mesh& targetMesh)
{
    if (g.Empty())
        return;
    const double t = static_cast<double>(f.n) / f.d;
    const double sourceWound = Smooth(t / 0.6);
    const double targetWound = 1 - Smooth((t - 0.4) / 0.6);
    const auto weight = static_cast<std::uint32_t>(std::lround(256 * Smooth((t - 0.35) / 0.3)));
    const double radius = std::max(1.0, g.HalfDiagonal() * triple.c / 100);
    const double cx = (static_cast<double>(g.CentreX2()) - 1) / 2,
                 cr = (static_cast<double>(g.CentreR2()) - 1) / 2;
    const auto place = [&](Mesh& m, std::size_t node, std::int32_t i, std::int32_t j, double dx, double dr,
                           Turn turn) {
        if (turn.Still())
            m.SetStill(g, node, i, j);
        else
            m.Set(g, node, cx + (dx * turn.cos - dr * turn.sin) / 65536,
                  cr + (dx * turn.sin + dr * turn.cos) / 65536);
    };
    for (std::int32_t j = 0; j < sourceMesh.down; ++j) {
        const double dr = Mesh::At(g.r0, g.h, j) - cr;
        for (std::int32_t i = 0; i < sourceMesh.across; ++i) {
            const double dx = Mesh::At(g.x0, g.w, i) - cx;
            const double near = std::max(0.0, 1 - std::sqrt(dx * dx + dr * dr) / radius);
            const double falloff = near * near / 2; // Half turns to turns.
            // Samples are turned back by the angle the picture shows turned by.
            const std::size_t node = sourceMesh.Node(i, j);
            place(sourceMesh, node, i, j, dx, dr, TurnBy(-triple.a * falloff * sourceWound));
            place(targetMesh, node, i, j, dx, dr, TurnBy(triple.b * falloff * targetWound));
        }
    }
    const std::uint32_t* source = Pixels(f.source);
    const std::uint32_t* target = Pixels(f.target);
    if (weight == 0)
        DrawMesh(f, sourceMesh, source);
    else if (weight == 256)
        DrawMesh(f, targetMesh, target);
    else
        DrawMeshesBlended(f, sourceMesh, source, targetMesh, target, weight);
}

void RenderSwirl(const Frame& f)
{
    if (DrawEnd(f, f.Percent()) || swirl.w != f.w || swirl.h != f.h || swirl.regionCount == 0)
        return;
    for (int i = 0; i < swirl.regionCount; ++i)
        DrawSwirl(f, swirl.regions[i], swirl.triples[i], swirl.source[i], swirl.target[i]);
}

// Makes the swirl's meshes for the whole picture (one triple) or its quarters (four).
void MakeSwirl(const Frame& f, std::span<const Triple> triples)
{
    swirl = {};
    swirl.w = f.w;
    swirl.h = f.h;
    swirl.regionCount = Regions(f.w, f.h, triples.size() == 4, swirl.regions);
    for (int i = 0; i < swirl.regionCount; ++i) {
        swirl.triples[i] = triples[static_cast<std::size_t>(i)];
        swirl.source[i].Make(swirl.regions[i]);
        swirl.target[i].Make(swirl.regions[i]);
    }
}

// The spiral. For a triple (a, b, c):
// - a: the number of arms, signed: the sense in which they sweep round (positive counter-clockwise);
// - b: the turns each arm makes from the centre to the corners, signed: the arms' handedness, and the
//   sense in which the pictures curl where an arm passes;
// - c: the part of the transition, in percent, during which a pixel curls before and after an arm
//   passes it; the wider, the more of the picture moves at once.
// Each pixel changes to the target at its own moment, the phase of the arm pattern at its place, and
// each picture is turned about the centre by up to half the angle between two arms as an arm passes.
constexpr Triple kSpiralPresets[kSpiralPresetCount] = {
    {2, 1, 30},  {-4, -3, 40}, {1, 3, 20}, {2, -1, 50}, {3, 5, 25},  {-7, -1, 30}, {1, 1, 40},
    {7, -1, 30}, {3, 1, 60},   {1, 1, 20}, {3, 5, 40},  {7, -1, 30}, {2, 6, 35},   {10, 1, 25},
};
constexpr Triple kSpiralQuarters[4] = {{-3, -4, 30}, {-3, 4, 30}, {3, -4, 30}, {3, 4, 30}};

// What a pixel shows at one distance in time from its own moment of change.
struct SpiralTwist
{
    Turn turn;
    bool target;
};

// The twist table is indexed by (progress − the pixel's moment + 1) in 16.16, shifted down by this.
constexpr int kTwistShift = 5;
constexpr std::size_t kTwistSteps = (std::size_t{2} << 16 >> kTwistShift) + 1;

struct SpiralState
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    int regionCount = 0;
    Region regions[4];
    std::vector<std::uint16_t> moments; // Per pixel, memory order: when it changes, of 65536.
    std::vector<SpiralTwist> twists;    // kTwistSteps per region.
};
thread_local SpiralState spiral;

void MakeSpiral(const Frame& f, std::span<const Triple> triples)
{
    spiral = {};
    spiral.w = f.w;
    spiral.h = f.h;
    spiral.regionCount = Regions(f.w, f.h, triples.size() == 4, spiral.regions);
    spiral.moments.assign(static_cast<std::size_t>(f.w) * static_cast<std::size_t>(f.h), 0);
    spiral.twists.resize(kTwistSteps * static_cast<std::size_t>(spiral.regionCount));
    for (int i = 0; i < spiral.regionCount; ++i) {
        const Region& g = spiral.regions[i];
        const Triple& triple = triples[static_cast<std::size_t>(i)];
        const double arms = std::max(1.0, std::round(std::abs(triple.a)));
        const double sweep = triple.a < 0 ? -arms : arms;
        const double curl = triple.b < 0 ? -1 : 1;
        const double window = std::clamp(triple.c, 1.0, 100.0) / 200; // Each side of the moment.
        // Moments run from `window` to 1 − `window`, so that nothing curls at either end.
        const double diagonal2 = std::max(1.0, 2 * g.HalfDiagonal());
        for (std::int32_t r = g.r0; r < g.r0 + g.h; ++r) {
            const double dr2 = 2.0 * r + 1 - static_cast<double>(g.CentreR2());
            std::uint16_t* row =
                spiral.moments.data() + static_cast<std::size_t>(r) * static_cast<std::size_t>(f.w);
            for (std::int32_t x = g.x0; x < g.x0 + g.w; ++x) {
                const double dx2 = 2.0 * x + 1 - static_cast<double>(g.CentreX2());
                const double phase = sweep * std::atan2(dr2, dx2) / (2 * kPi) +
                                     triple.b * std::sqrt(dx2 * dx2 + dr2 * dr2) / diagonal2;
                const double moment = window + (phase - std::floor(phase)) * (1 - 2 * window);
                row[x] = static_cast<std::uint16_t>(std::clamp(std::lround(moment * 65536), 0L, 65535L));
            }
        }
        // The twist only depends on how far the progress is from a pixel's moment.
        const double most = curl * 0.5 / arms; // Turns.
        SpiralTwist* twists = spiral.twists.data() + kTwistSteps * static_cast<std::size_t>(i);
        for (std::size_t k = 0; k < kTwistSteps; ++k) {
            const auto since = static_cast<std::int64_t>(k << kTwistShift) - 65536;
            const bool target = since >= 0;
            const double away = (static_cast<double>(since) + (1 << kTwistShift) / 2.0) / 65536;
            const double closeness = Smooth(1 - std::abs(away) / window);
            // The source turns on as the arm comes, the target turns on into place after it.
            const double shown = target ? -most * closeness : most * closeness;
            twists[k] = {TurnBy(-shown), target};
        }
    }
}

void RenderSpiral(const Frame& f)
{
    if (DrawEnd(f, f.Percent()) || spiral.w != f.w || spiral.h != f.h || spiral.regionCount == 0)
        return;
    const auto now = static_cast<std::int64_t>((static_cast<std::int64_t>(f.n) << 16) / f.d);
    const std::uint32_t* source = Pixels(f.source);
    const std::uint32_t* target = Pixels(f.target);
    for (int i = 0; i < spiral.regionCount; ++i) {
        const Region& g = spiral.regions[i];
        const SpiralTwist* twists = spiral.twists.data() + kTwistSteps * static_cast<std::size_t>(i);
        for (std::int32_t r = g.r0; r < g.r0 + g.h; ++r) {
            const std::int64_t dr2 = 2 * static_cast<std::int64_t>(r) + 1 - g.CentreR2();
            const std::size_t rowStart = static_cast<std::size_t>(r) * static_cast<std::size_t>(f.w);
            const std::uint16_t* moments = spiral.moments.data() + rowStart;
            auto* out = reinterpret_cast<std::uint32_t*>(f.output) + rowStart;
            std::int64_t dx2 = 1 - static_cast<std::int64_t>(g.w);
            for (std::int32_t x = g.x0; x < g.x0 + g.w; ++x, dx2 += 2) {
                const SpiralTwist& twist = twists[(now - moments[x] + 65536) >> kTwistShift];
                const std::uint32_t* picture = twist.target ? target : source;
                out[x] = twist.turn.Still() ? picture[rowStart + static_cast<std::size_t>(x)]
                                            : SampleTurned(f, picture, g, dx2, dr2, twist.turn);
            }
        }
    }
}

// The ripple: a front runs out from the centre to past the corners; the target shows inside it and the
// source outside. Behind the front a train of ripples pulls the target in and out along the radius,
// fading with the distance from the front; a weaker swell runs ahead of it on the source. The waves
// grow and die away with sin(π t), so both ends are still.
struct RippleStep
{
    std::int32_t scale; // 16.16: where along its radius a pixel samples, as a part of its distance.
    std::int32_t light; // Of 256: towards white where positive, towards black where negative.
    bool target;
};

struct RippleState
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    Region region;
    RadiusMap radius;
    std::vector<RippleStep> table; // One frame's samples per distance step.
};
thread_local RippleState ripple;

void RenderRipple(const Frame& f)
{
    if (DrawEnd(f, f.Percent()) || ripple.w != f.w || ripple.h != f.h || ripple.table.empty())
        return;
    const Region& g = ripple.region;
    const double t = static_cast<double>(f.n) / f.d;
    const double reach = g.HalfDiagonal();
    const double wavelength = std::max(4.0, reach / 6);
    const double train = 2 * wavelength; // How far behind the front the ripples reach.
    const double front = t * (reach + train);
    const double swell = std::sin(kPi * t);
    const double height = wavelength / 4 * swell;
    const std::int32_t limit = ripple.radius.limits[0];
    for (std::int32_t i = 0; i <= limit; ++i) {
        const double distance = i / ripple.radius.stepsPerPixel;
        const bool target = distance < front;
        // The wave's phase and strength here: a full train behind the front, half a wave ahead of it.
        const double away = std::abs(front - distance);
        const double strength =
            target ? std::max(0.0, 1 - away / train) : std::max(0.0, 1 - away / wavelength) / 2;
        const double shift = height * strength * SineOf(away / wavelength);
        // The slopes of the waves catch the light, so that they show on flat colour too.
        const double light = 96 * swell * strength * SineOf(away / wavelength + 0.25);
        const double scale = distance > 0 ? std::max(0.0, (distance - shift) / distance) : 1;
        ripple.table[static_cast<std::size_t>(i)] = {static_cast<std::int32_t>(std::lround(scale * 65536)),
                                                     static_cast<std::int32_t>(std::lround(light)), target};
    }
    const std::uint32_t* source = Pixels(f.source);
    const std::uint32_t* target = Pixels(f.target);
    for (std::int32_t r = 0; r < f.h; ++r) {
        const std::int64_t dr2 = 2 * static_cast<std::int64_t>(r) + 1 - g.CentreR2();
        const std::size_t rowStart = static_cast<std::size_t>(r) * static_cast<std::size_t>(f.w);
        const std::uint16_t* steps = ripple.radius.steps.data() + rowStart;
        auto* out = reinterpret_cast<std::uint32_t*>(f.output) + rowStart;
        std::int64_t dx2 = 1 - static_cast<std::int64_t>(f.w);
        for (std::int32_t x = 0; x < f.w; ++x, dx2 += 2) {
            const RippleStep& step = ripple.table[steps[x]];
            const std::uint32_t* picture = step.target ? target : source;
            std::uint32_t pixel = step.scale == 65536
                                      ? picture[rowStart + static_cast<std::size_t>(x)]
                                      : SampleAt(f, picture, g, dx2 * step.scale, dr2 * step.scale);
            if (step.light > 0)
                pixel = Blend(pixel, 0xFFFFFFFFu, static_cast<std::uint32_t>(step.light));
            else if (step.light < 0)
                pixel = Blend(pixel, 0, static_cast<std::uint32_t>(-step.light));
            out[x] = pixel;
        }
    }
}

// The melt: the picture is cut into columns a few pixels wide, each falling down the picture from its
// own moment with its own speed, faster and faster, showing the target above it. Neighbouring columns
// start close together (a random walk), so the edge runs unevenly rather than in noise.
struct MeltState
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    std::int32_t columnWidth = 1;
    std::vector<std::int32_t> starts; // Per column, thousandths of the transition.
    std::vector<std::int32_t> speeds; // Per column, 1000 to 1400: thousandths of the plain fall speed.
    std::vector<std::int32_t> drops;  // One frame's fall per column, in rows.
};
thread_local MeltState melt;

void MakeMelt(const Frame& f)
{
    melt = {};
    melt.w = f.w;
    melt.h = f.h;
    melt.columnWidth = std::max(1, f.w / 160);
    const std::int32_t columns = (f.w + melt.columnWidth - 1) / melt.columnWidth;
    melt.starts.resize(static_cast<std::size_t>(columns));
    melt.speeds.resize(static_cast<std::size_t>(columns));
    melt.drops.resize(static_cast<std::size_t>(columns));
    // Random walks, so that neighbouring columns are alike and the edge runs in drips, not noise.
    std::int32_t start = Rand() % 150;
    std::int32_t speed = 1000 + Rand() % 300;
    for (std::int32_t c = 0; c < columns; ++c) {
        start = std::clamp(start + Rand() % 31 - 15, 0, 250);
        speed = std::clamp(speed + Rand() % 81 - 40, 1000, 1400);
        melt.starts[static_cast<std::size_t>(c)] = start;
        melt.speeds[static_cast<std::size_t>(c)] = speed;
    }
}

// Copies `count` pixels two at a time: a column is a few pixels wide, and a call to memcpy per column
// and row would cost more than the copy.
void CopyFew(std::uint8_t* out, const std::uint8_t* in, std::int32_t count)
{
    std::int32_t i = 0;
    for (; i + 2 <= count; i += 2)
        std::memcpy(out + static_cast<std::size_t>(i) * 4, in + static_cast<std::size_t>(i) * 4, 8);
    if (i < count)
        std::memcpy(out + static_cast<std::size_t>(i) * 4, in + static_cast<std::size_t>(i) * 4, 4);
}

void RenderMelt(const Frame& f)
{
    if (DrawEnd(f, f.Percent()) || melt.w != f.w || melt.h != f.h || melt.drops.empty())
        return;
    // A column falls a part s² of the picture's height, where s runs from 0 at its start to at least 1
    // at the end of the transition (its speed is at least 1000 thousandths): every column has gone by then.
    const std::int64_t now = static_cast<std::int64_t>(f.n) * 1000 / f.d;
    for (std::size_t c = 0; c < melt.drops.size(); ++c) {
        const std::int64_t start = melt.starts[c];
        const std::int64_t s = std::min<std::int64_t>(1000, std::max<std::int64_t>(0, now - start) *
                                                                melt.speeds[c] / (1000 - start));
        melt.drops[c] = static_cast<std::int32_t>(s * s * f.h / 1000000);
    }
    // Memory rows count up from the bottom: a column dropped by `drop` rows shows at row r the source's
    // row r + drop, and the target where that is past the top. Drawn a column at a time, so that the
    // reads go down the pictures at an even stride the processor can fetch ahead of.
    for (std::size_t c = 0; c < melt.drops.size(); ++c) {
        const std::int32_t x = static_cast<std::int32_t>(c) * melt.columnWidth;
        const std::int32_t count = std::min(melt.columnWidth, f.w - x);
        const std::int32_t kept = std::max(0, f.h - melt.drops[c]); // Rows still showing the source.
        const auto offset = static_cast<std::size_t>(x) * 4;
        for (std::int32_t r = 0; r < kept; ++r)
            CopyFew(f.OutputRow(r) + offset, f.SourceRow(r + melt.drops[c]) + offset, count);
        for (std::int32_t r = kept; r < f.h; ++r)
            CopyFew(f.OutputRow(r) + offset, f.TargetRow(r) + offset, count);
    }
}

// The protocol around a family's render: init makes the state, release drops it.
template <void (*Make)(const Frame&), void (*Drop)(), void (*Render)(const Frame&)>
std::int32_t WithState(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        if (const auto frame = ReadFrame(params))
            Make(*frame);
        return 0;
    }
    if (message == EffectRelease) {
        Drop();
        return 0;
    }
    return Stateless<Render>(message, params);
}

void MakeSwirlPreset(const Frame& f)
{
    MakeSwirl(f, std::span(&kSwirlPresets[swirlPreset.load()], 1));
}
void MakeSwirlQuarters(const Frame& f)
{
    MakeSwirl(f, kSwirlQuarters);
}
void DropSwirl()
{
    swirl = {};
}
void DropSwirlPreset()
{
    DropSwirl();
    Advance(swirlPreset, kSwirlPresetCount);
}

void MakeSpiralPreset(const Frame& f)
{
    MakeSpiral(f, std::span(&kSpiralPresets[spiralPreset.load()], 1));
}
void MakeSpiralQuarters(const Frame& f)
{
    MakeSpiral(f, kSpiralQuarters);
}
void DropSpiral()
{
    spiral = {};
}
void DropSpiralPreset()
{
    DropSpiral();
    Advance(spiralPreset, kSpiralPresetCount);
}

void MakeRipple(const Frame& f)
{
    ripple = {};
    ripple.w = f.w;
    ripple.h = f.h;
    ripple.region = {0, 0, f.w, f.h};
    const double reach = std::max(1.0, ripple.region.HalfDiagonal());
    ripple.radius.Make(f.w, f.h, std::span(&ripple.region, 1), std::span(&reach, 1));
    ripple.table.resize(static_cast<std::size_t>(ripple.radius.limits[0]) + 1);
}
void DropRipple()
{
    ripple = {};
}
void DropMelt()
{
    melt = {};
}

} // namespace

std::int32_t Swirl(std::uint32_t message, void* params)
{
    return WithState<MakeSwirlPreset, DropSwirlPreset, RenderSwirl>(message, params);
}
std::int32_t SwirlQuarters(std::uint32_t message, void* params)
{
    return WithState<MakeSwirlQuarters, DropSwirl, RenderSwirl>(message, params);
}
std::int32_t Spiral(std::uint32_t message, void* params)
{
    return WithState<MakeSpiralPreset, DropSpiralPreset, RenderSpiral>(message, params);
}
std::int32_t SpiralQuarters(std::uint32_t message, void* params)
{
    return WithState<MakeSpiralQuarters, DropSpiral, RenderSpiral>(message, params);
}
std::int32_t Ripple(std::uint32_t message, void* params)
{
    return WithState<MakeRipple, DropRipple, RenderRipple>(message, params);
}
std::int32_t Melt(std::uint32_t message, void* params)
{
    return WithState<MakeMelt, DropMelt, RenderMelt>(message, params);
}

} // namespace lumenar::effects
