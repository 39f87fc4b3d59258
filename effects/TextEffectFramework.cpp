#include "effects/TextEffectFramework.h"

#include "base/Assert.h"
#include "platform/CodePage.h"
#include "platform/Cpu.h"
#include "records/CaptionFont.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <mutex>
#include <type_traits>

namespace lumenar::effects {

namespace {

// The states of all running captions, keyed by the handle in their record's effectState word.
std::mutex statesLock; // Guards States() and nextHandle.
std::uint32_t nextHandle = 0;

std::map<std::uint32_t, std::unique_ptr<TextEffectState>>& States()
{
    static std::map<std::uint32_t, std::unique_ptr<TextEffectState>> states;
    return states;
}

// Handles carry a marker in their top byte so that a word left in a film by another program is unlikely
// to name a live state; 0 never is a handle.
constexpr std::uint32_t kHandleMarker = 0x7E000000;
constexpr std::uint32_t kHandleCounterMask = 0x00FFFFFF;

std::uint32_t Register(std::unique_ptr<TextEffectState> state)
{
    std::lock_guard<std::mutex> hold(statesLock);
    auto& states = States();
    std::uint32_t handle = 0;
    do {
        nextHandle = (nextHandle + 1) & kHandleCounterMask;
        handle = kHandleMarker | nextHandle;
    } while (nextHandle == 0 || states.count(handle) != 0);
    states.emplace(handle, std::move(state));
    return handle;
}

std::unique_ptr<TextEffectState> Unregister(std::uint32_t handle)
{
    std::lock_guard<std::mutex> hold(statesLock);
    auto& states = States();
    const auto found = states.find(handle);
    if (found == states.end())
        return nullptr;
    std::unique_ptr<TextEffectState> state = std::move(found->second);
    states.erase(found);
    return state;
}

// The smallest power of two at or above `value` (1 for values below 2), and its log2.
void PowerOfTwoCell(std::int32_t value, std::int32_t& width, std::int32_t& shift)
{
    width = 1;
    shift = 0;
    while (width < value && shift < 30) {
        width <<= 1;
        ++shift;
    }
}

bool SheetFits(std::int32_t cellWidth, std::int32_t cellHeight, std::int32_t count)
{
    return cellWidth > 0 && cellHeight > 0 &&
           static_cast<std::int64_t>(cellWidth) * cellHeight * std::max(count, 1) <= kMaxSheetBytes;
}

// The shadow of one glyph: its ink (drawn black on white in `scratch`) spread over a 5 × 5 box, so the
// edge is soft, and scaled to at most 192 so the picture still shows through the densest part. Only the
// ink's box grown by the spread is worked on (the cell is already 0). Returns that box within the cell.
InkBox SpreadShadow(const std::vector<std::uint8_t>& scratch, int scratchWidth, int scratchHeight,
                    std::uint8_t* cell, int cellWidth, int cellHeight)
{
    constexpr int kRadius = 2;
    constexpr int kBox = (2 * kRadius + 1) * (2 * kRadius + 1);
    constexpr int kStrongest = 192;
    const int rows = std::min(cellHeight, scratchHeight);
    const int columns = std::min(cellWidth, scratchWidth);
    InkBox ink{columns, rows, 0, 0};
    for (int y = 0; y < rows + kRadius && y < scratchHeight; ++y) {
        const std::uint8_t* in = scratch.data() + static_cast<std::size_t>(y) * scratchWidth;
        for (int x = 0; x < columns + kRadius && x < scratchWidth; ++x) {
            if (in[x] != 0)
                continue;
            ink.left = std::min(ink.left, x);
            ink.right = std::max(ink.right, x + 1);
            ink.top = std::min(ink.top, y);
            ink.bottom = std::max(ink.bottom, y + 1);
        }
    }
    if (ink.right <= ink.left)
        return InkBox{};
    const InkBox spread{std::max(0, ink.left - kRadius), std::max(0, ink.top - kRadius),
                        std::min(columns, ink.right + kRadius), std::min(rows, ink.bottom + kRadius)};
    if (spread.right <= spread.left || spread.bottom <= spread.top)
        return InkBox{};
    // Horizontal sums of the spread box's rows (and the rows the vertical pass reaches), then vertical.
    const int sumTop = std::max(0, spread.top - kRadius);
    const int sumBottom = std::min(scratchHeight, spread.bottom + kRadius);
    const int span = spread.right - spread.left;
    std::vector<int> rowSums(static_cast<std::size_t>(span) * static_cast<std::size_t>(sumBottom - sumTop),
                             0);
    for (int y = sumTop; y < sumBottom; ++y) {
        const std::uint8_t* in = scratch.data() + static_cast<std::size_t>(y) * scratchWidth;
        int* out = rowSums.data() + static_cast<std::size_t>(y - sumTop) * span;
        for (int x = spread.left; x < spread.right; ++x) {
            int sum = 0;
            for (int k = std::max(0, x - kRadius); k <= std::min(scratchWidth - 1, x + kRadius); ++k)
                sum += in[k] == 0 ? 1 : 0;
            out[x - spread.left] = sum;
        }
    }
    for (int y = spread.top; y < spread.bottom; ++y) {
        // Cells are stored bottom row first.
        std::uint8_t* out = cell + static_cast<std::size_t>(cellHeight - 1 - y) * cellWidth;
        for (int x = spread.left; x < spread.right; ++x) {
            int sum = 0;
            for (int k = std::max(sumTop, y - kRadius); k <= std::min(sumBottom - 1, y + kRadius); ++k)
                sum += rowSums[static_cast<std::size_t>(k - sumTop) * span +
                               static_cast<std::size_t>(x - spread.left)];
            out[x] = static_cast<std::uint8_t>(sum * kStrongest / kBox);
        }
    }
    return spread;
}

// Where the pixels of a turned and scaled cell come from. Source positions are 16.16 sheet samples
// counted from the cell's left and top edges; destination pixels are counted from the picture's top.
struct CellMapping
{
    int left = 0, top = 0, right = 0, bottom = 0; // Destination box, clipped; right and bottom exclusive.
    // Where each row's source stepping starts: the left end clipped to the picture alone, so a band cut
    // from the box samples the same positions as the whole glyph would.
    int stepFrom = 0;
    std::int64_t centreU = 0, centreV = 0; // Turning centre in the sheet (16.16 samples).
    std::int64_t centreX = 0, centreY = 0; // The same point in the picture (16.16 pixels).
    std::int64_t cosine = 65536, sine = 0;
    std::int64_t samplesPerPixelX = 0, samplesPerPixelY = 0; // 16.16; the reciprocal scales.

    // The source position of pixel (x, y), biased by half a sample so that small fixed-point errors do
    // not move a sample across a boundary. Vertically it is the lower sample of the pair the pixel
    // covers: the blitter reads the one above it too.
    void Source(int x, int y, std::int64_t& u, std::int64_t& v) const
    {
        const std::int64_t dx = (static_cast<std::int64_t>(x) << 16) - centreX;
        const std::int64_t dy = (static_cast<std::int64_t>(y) << 16) - centreY;
        // C++20 shifts of negative values are arithmetic: they round down.
        const std::int64_t rx = (dx * cosine + dy * sine) >> 16;
        const std::int64_t ry = (dy * cosine - dx * sine) >> 16;
        u = centreU + ((rx * samplesPerPixelX) >> 16) + 0x8000;
        v = centreV + ((ry * samplesPerPixelY) >> 16) + 0x18000;
    }
    std::int64_t StepUX() const { return (cosine * samplesPerPixelX) >> 16; }
    std::int64_t StepVX() const { return (-sine * samplesPerPixelY) >> 16; }
};

// The half scale the double-size sheets are read at, kept away from zero so the reciprocal exists.
std::int64_t SheetScale(std::int32_t scale)
{
    const std::int64_t half = scale / 2;
    return std::llabs(half) < 4 ? 4 : half;
}

// Maps the part `box` of a cell (the samples that can give ink), turned about (centreU, centreV) and placed
// with that point at (centreX, centreY), clipped to `clip` (within the picture). Returns false when the
// box is empty or misses the clip.
bool MapCell(CellMapping& map, std::int64_t centreU, std::int64_t centreV, const InkBox& box,
             std::int64_t centreX, std::int64_t centreY, std::int64_t sx, std::int64_t sy, std::int32_t angle,
             const PictureBand& clip)
{
    if (box.right <= box.left || box.bottom <= box.top)
        return false;
    const SinCos& table = SinCosTable();
    map.cosine = table.cosine[static_cast<std::size_t>(angle)];
    map.sine = table.sine[static_cast<std::size_t>(angle)];
    map.centreU = centreU;
    map.centreV = centreV;
    map.centreX = centreX;
    map.centreY = centreY;
    // The reciprocals are taken once per glyph: no division inside the pixel loops.
    map.samplesPerPixelX = (std::int64_t{1} << 32) / sx;
    map.samplesPerPixelY = (std::int64_t{1} << 32) / sy;
    // The box's corners, scaled and turned forwards, give the destination box.
    std::int64_t minX = INT64_MAX, maxX = INT64_MIN, minY = INT64_MAX, maxY = INT64_MIN;
    for (const std::int64_t u : {std::int64_t{box.left}, std::int64_t{box.right}}) {
        for (const std::int64_t v : {std::int64_t{box.top}, std::int64_t{box.bottom}}) {
            const std::int64_t ox = (((u << 16) - centreU) * sx) >> 16; // 16.16 pixels before turning.
            const std::int64_t oy = (((v << 16) - centreV) * sy) >> 16;
            const std::int64_t dx = (ox * map.cosine - oy * map.sine) >> 16;
            const std::int64_t dy = (ox * map.sine + oy * map.cosine) >> 16;
            minX = std::min(minX, dx);
            maxX = std::max(maxX, dx);
            minY = std::min(minY, dy);
            maxY = std::max(maxY, dy);
        }
    }
    const std::int64_t left = std::max<std::int64_t>(clip.left, ((centreX + minX) >> 16) - 1);
    const std::int64_t top = std::max<std::int64_t>(clip.top, ((centreY + minY) >> 16) - 1);
    const std::int64_t right = std::min<std::int64_t>(clip.right, ((centreX + maxX) >> 16) + 2);
    const std::int64_t bottom = std::min<std::int64_t>(clip.bottom, ((centreY + maxY) >> 16) + 2);
    if (left >= right || top >= bottom)
        return false;
    map.left = static_cast<int>(left);
    map.stepFrom = static_cast<int>(std::clamp<std::int64_t>(((centreX + minX) >> 16) - 1, 0, left));
    map.top = static_cast<int>(top);
    map.right = static_cast<int>(right);
    map.bottom = static_cast<int>(bottom);
    return true;
}

std::uint8_t* PixelAt(std::uint8_t* bits, std::int32_t width, std::int32_t height, int x, int y)
{
    return bits + (static_cast<std::size_t>(height - 1 - y) * static_cast<std::size_t>(width) +
                   static_cast<std::size_t>(x)) *
                      4;
}

// Visits every destination pixel of the mapping whose source sample lies in `box`, calling
// pixel(out, column, row-from-top). Each row visits only the run of pixels whose source lies in the
// box, found from the row's start and step, so a turned glyph costs about what an upright one does.
//
// `rowRun(sv, left, right)` may narrow the columns [left, right) of sample row sv that can give ink; it is
// asked for rows of upright glyphs, where a whole pixel row reads one sample row.
struct WholeRows
{
    void operator()(std::int64_t, std::int64_t&, std::int64_t&) const {}
};

//
// `uprightRun(out, u, stepU, sv, count)`, when given, takes whole runs of upright rows instead of `pixel`:
// `count` pixels from `out` reading sample row sv at columns (u + k × stepU) >> 16.
template <typename Pixel, typename RowRun = WholeRows, typename UprightRun = std::nullptr_t>
void ForEachSample(TextEffectState& s, const CellMapping& map, const InkBox& box, Pixel pixel,
                   RowRun rowRun = {}, UprightRun uprightRun = nullptr)
{
    const std::int64_t stepU = map.StepUX();
    const std::int64_t stepV = map.StepVX();
    const std::int64_t lowU = std::int64_t{box.left} << 16, highU = std::int64_t{box.right} << 16;
    const std::int64_t lowV = std::int64_t{box.top} << 16, highV = std::int64_t{box.bottom} << 16;
    const double reciprocalU = stepU != 0 ? 1.0 / static_cast<double>(stepU) : 0.0;
    const double reciprocalV = stepV != 0 ? 1.0 / static_cast<double>(stepV) : 0.0;
    for (int y = map.top; y < map.bottom; ++y) {
        std::int64_t u = 0, v = 0;
        map.Source(map.stepFrom, y, u, v);
        // Stepping from the same start as the unclipped glyph keeps the rounding of its positions.
        u += (map.left - map.stepFrom) * stepU;
        v += (map.left - map.stepFrom) * stepV;
        std::int64_t first = 0, end = map.right - map.left;
        if (stepV == 0) {
            const std::int64_t sv = v >> 16;
            if (sv < box.top || sv >= box.bottom)
                continue;
            std::int64_t left = box.left, right = box.right;
            rowRun(sv, left, right);
            StepsWithin(u, stepU, reciprocalU, left << 16, right << 16, first, end);
        }
        StepsWithin(u, stepU, reciprocalU, lowU, highU, first, end);
        StepsWithin(v, stepV, reciprocalV, lowV, highV, first, end);
        if (first >= end)
            continue;
        u += first * stepU;
        v += first * stepV;
        std::uint8_t* out = PixelAt(s.dcBits, s.width, s.height, map.left + static_cast<int>(first), y);
        if (stepV == 0) { // The whole row reads one sample row.
            const std::int64_t sv = v >> 16;
            if constexpr (std::is_same_v<UprightRun, std::nullptr_t>) {
                for (std::int64_t k = first; k < end; ++k, u += stepU, out += 4)
                    pixel(out, u >> 16, sv);
            } else {
                uprightRun(out, u, stepU, sv, end - first);
            }
            continue;
        }
        for (std::int64_t k = first; k < end; ++k, u += stepU, v += stepV, out += 4) {
            const std::int64_t su = u >> 16;
            const std::int64_t sv = v >> 16;
            LUM_ASSERT(su >= box.left && su < box.right && sv >= box.top && sv < box.bottom,
                       "row run leaves the ink box");
            pixel(out, su, sv);
        }
    }
}

void DrawShadow(TextEffectState& s, const CellMapping& map, const std::uint8_t* cell, const InkBox& box,
                int opacity)
{
    const std::uint8_t* clamp = ClampTable();
    const std::int64_t cellHeight = s.shadowCellHeight;
    const int shift = s.shadowCellShift;
    const int threshold = 255 - opacity;
    ForEachSample(s, map, box, [&](std::uint8_t* out, std::int64_t su, std::int64_t sv) {
        const int amount = cell[((cellHeight - 1 - sv) << shift) + su] - threshold;
        if (amount <= 0)
            return;
        out[0] = clamp[out[0] - amount];
        out[1] = clamp[out[1] - amount];
        out[2] = clamp[out[2] - amount];
    });
}

// The ink count (0..4) a pixel reads at each sample of `box` in a bottom-up glyph cell: the sample, its
// right neighbour, the one above and the one above right, those beyond the cell's edges counting as no
// ink. Samples outside the box stay 0.
void CountInk(const std::uint8_t* cell, std::uint8_t* counts, int cellWidth, int cellHeight, int shift,
              const InkBox& box)
{
    for (int sv = box.top; sv < box.bottom; ++sv) {
        const int row = cellHeight - 1 - sv;
        const std::uint8_t* here = cell + (static_cast<std::size_t>(row) << shift);
        const std::uint8_t* upper = row + 1 < cellHeight ? here + cellWidth : nullptr;
        std::uint8_t* out = counts + (static_cast<std::size_t>(row) << shift);
        for (int su = box.left; su < box.right; ++su) {
            const bool hasRight = su + 1 < cellWidth;
            int ink = here[su] == 0 ? 1 : 0;
            if (hasRight && here[su + 1] == 0)
                ++ink;
            if (upper != nullptr) {
                if (upper[su] == 0)
                    ++ink;
                if (hasRight && upper[su + 1] == 0)
                    ++ink;
            }
            out[su] = static_cast<std::uint8_t>(ink);
        }
    }
}

void BlitGlyph(TextEffectState& s, const CellMapping& map, const std::uint8_t* counts, const InkBox& box,
               std::uint8_t blue, std::uint8_t green, std::uint8_t red, int alpha)
{
    const std::int64_t cellHeight = s.glyphCellHeight;
    const int shift = s.glyphCellShift;
    ForEachSample(s, map, box, [&](std::uint8_t* out, std::int64_t su, std::int64_t sv) {
        const int ink = counts[((cellHeight - 1 - sv) << shift) + su];
        if (ink == 0)
            return;
        out[0] = BlendInk(out[0], blue, ink, alpha);
        out[1] = BlendInk(out[1], green, ink, alpha);
        out[2] = BlendInk(out[2], red, ink, alpha);
    });
}

// The samples of a bottom-up cell for which `isInk` holds, as a box counted from the cell's top.
template <typename IsInk> InkBox FindInk(const std::uint8_t* cell, int cellWidth, int cellHeight, IsInk isInk)
{
    InkBox box{cellWidth, cellHeight, 0, 0};
    for (int row = 0; row < cellHeight; ++row) {
        const std::uint8_t* in = cell + static_cast<std::size_t>(row) * cellWidth;
        const int top = cellHeight - 1 - row;
        for (int x = 0; x < cellWidth; ++x) {
            if (!isInk(in[x]))
                continue;
            box.left = std::min(box.left, x);
            box.right = std::max(box.right, x + 1);
            box.top = std::min(box.top, top);
            box.bottom = std::max(box.bottom, top + 1);
        }
    }
    return box;
}

// A font as the cache tells fonts apart: everything of its request that shapes a glyph.
std::string FontKey(const platform::FontRequest& request)
{
    return request.faceUtf8 + '|' + std::to_string(request.height) + '|' + std::to_string(request.width) +
           '|' + std::to_string(request.weight) + '|' + (request.italic ? "i" : "r");
}

// One character's cells as a caption's sheets hold them.
struct RenderedCells
{
    std::vector<std::uint8_t> glyph;
    std::vector<std::uint8_t> shadow; // Empty when made for a caption without shadows.
    InkBox glyphInk;
    InkBox shadowInk;
    std::int32_t advance = 0;
};

// The cells already made, by font and character: drawing a glyph and spreading its shadow dominate a
// caption's preparation, and the same letters in the same font come back in every caption and item.
// Shared by the captions of every player in the process; bounded, and emptied whole when full.
class RenderedGlyphs
{
public:
    bool Find(const std::string& font, char32_t character, bool withShadow, RenderedCells& out)
    {
        std::lock_guard hold(lock_);
        const auto found = cells_.find(Key(font, character));
        if (found == cells_.end() || (withShadow && found->second.shadow.empty()))
            return false;
        out = found->second;
        return true;
    }
    void Clear()
    {
        std::lock_guard hold(lock_);
        cells_.clear();
        bytes_ = 0;
    }
    void Store(const std::string& font, char32_t character, RenderedCells cells)
    {
        const std::size_t bytes = cells.glyph.size() + cells.shadow.size() + font.size() + 64;
        std::lock_guard hold(lock_);
        if (bytes > kMaxBytes)
            return;
        if (bytes_ + bytes > kMaxBytes) {
            cells_.clear();
            bytes_ = 0;
        }
        RenderedCells& slot = cells_[Key(font, character)];
        bytes_ -= std::min(bytes_, slot.glyph.size() + slot.shadow.size());
        bytes_ += bytes;
        slot = std::move(cells);
    }

private:
    static constexpr std::size_t kMaxBytes = 32u << 20;
    static std::string Key(const std::string& font, char32_t character)
    {
        return font + '#' + std::to_string(static_cast<std::uint32_t>(character));
    }
    std::mutex lock_; // Guards cells_ and bytes_.
    std::unordered_map<std::string, RenderedCells> cells_;
    std::size_t bytes_ = 0;
};

RenderedGlyphs& GlyphCache()
{
    static RenderedGlyphs cache;
    return cache;
}

} // namespace

const SinCos& SinCosTable()
{
    static const SinCos table = [] {
        SinCos made{};
        for (int a = 0; a < 3600; ++a) {
            const double radians = a * 0.0017453292222222223;
            made.sine[static_cast<std::size_t>(a)] = static_cast<std::int32_t>(std::sin(radians) * 65536.0);
            made.cosine[static_cast<std::size_t>(a)] = static_cast<std::int32_t>(std::cos(radians) * 65536.0);
        }
        return made;
    }();
    return table;
}

const std::uint8_t* ClampTable()
{
    static const std::array<std::uint8_t, 768> table = [] {
        std::array<std::uint8_t, 768> made{};
        for (int i = 0; i < 768; ++i)
            made[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(std::clamp(i - 256, 0, 255));
        return made;
    }();
    return table.data() + 256;
}

const std::array<std::int32_t, 50>& FadeRamp()
{
    static const std::array<std::int32_t, 50> ramp = [] {
        std::array<std::int32_t, 50> made{};
        for (int k = 0; k < 50; ++k)
            made[static_cast<std::size_t>(k)] = k * 255 / 49;
        return made;
    }();
    return ramp;
}

TextEffectState* FindTextState(std::uint32_t handle)
{
    if (handle == 0)
        return nullptr;
    std::lock_guard<std::mutex> hold(statesLock);
    const auto found = States().find(handle);
    return found == States().end() ? nullptr : found->second.get();
}

void ForgetRenderedGlyphs()
{
    GlyphCache().Clear();
}

std::size_t LiveTextStates()
{
    std::lock_guard<std::mutex> hold(statesLock);
    return States().size();
}

void FreeTextState(const TextEffectParams& block)
{
    if (block.text == nullptr || block.text->effectState == 0)
        return;
    std::unique_ptr<TextEffectState> state = Unregister(block.text->effectState);
    block.text->effectState = 0;
    // The state (and its font) goes here, outside the table's lock.
}

int BuildTextState(const TextEffectParams& block)
{
    if (block.text == nullptr)
        return 0;
    records::TextRecord& record = *block.text;
    if (record.effectState != 0) {
        // A second init without a release: the earlier state would otherwise never be freed.
        std::unique_ptr<TextEffectState> earlier = Unregister(record.effectState);
    }
    auto state = std::make_unique<TextEffectState>();
    TextEffectState& s = *state;
    s.targetDc = block.dc;
    s.dcBits = block.dcBits;
    s.width = block.width;
    s.height = block.height;
    const int count = block.glyphs != nullptr ? std::max(block.glyphCount, 0) : 0;

    const bool built = [&] {
        // Glyphs are drawn without smoothing: Font renders monochrome.
        const platform::FontRequest request = records::CaptionFontRequest(record.font, 2);
        auto font = platform::Font::Create(request);
        if (!font.ok())
            return false;
        s.font = std::move(*font);
        s.metrics = s.font->Metrics();
        const platform::TextMetrics& m = s.metrics;
        s.sheetAscent = m.ascent;
        const int codePage = records::CaptionCodePage(record.font);

        // The shadow sheet, with a margin of 6 samples for the spread shadow; the glyph sheet (ink 0 on
        // 255), each glyph on the baseline of its own cell.
        PowerOfTwoCell(m.maxCharWidth + m.overhang + 6, s.shadowCellWidth, s.shadowCellShift);
        s.shadowCellHeight = m.height + 6;
        PowerOfTwoCell(m.maxCharWidth + m.overhang, s.glyphCellWidth, s.glyphCellShift);
        s.glyphCellHeight = m.height;
        if (!SheetFits(s.shadowCellWidth, s.shadowCellHeight, count) ||
            !SheetFits(s.glyphCellWidth, s.glyphCellHeight, count))
            return false;
        s.shadowSheetHeight = s.shadowCellHeight * count;
        s.glyphSheetHeight = s.glyphCellHeight * count;
        const std::size_t shadowCellBytes =
            static_cast<std::size_t>(s.shadowCellWidth) * static_cast<std::size_t>(s.shadowCellHeight);
        const std::size_t glyphCellBytes =
            static_cast<std::size_t>(s.glyphCellWidth) * static_cast<std::size_t>(s.glyphCellHeight);
        s.shadowBits.assign(shadowCellBytes * static_cast<std::size_t>(count), 0);
        s.glyphBits.assign(glyphCellBytes * static_cast<std::size_t>(count), 255);
        s.inkCounts.clear();
        s.inkCountCell.assign(static_cast<std::size_t>(count), 0);
        // A character's counts, made once: a new cell of them for each character first seen.
        auto newCountCell = [&](std::size_t glyph) {
            s.inkCountCell[glyph] = static_cast<std::int32_t>(s.inkCounts.size() / glyphCellBytes);
            s.inkCounts.resize(s.inkCounts.size() + glyphCellBytes, 0);
            return s.inkCounts.data() + s.inkCounts.size() - glyphCellBytes;
        };
        s.shadowInk.assign(static_cast<std::size_t>(count), InkBox{});
        s.glyphInk.assign(static_cast<std::size_t>(count), InkBox{});
        s.glyphAdvances.assign(static_cast<std::size_t>(count), 0);

        const bool shadow = record.shadow != 0;
        const std::string fontKey = FontKey(request);
        const int scratchWidth = (s.shadowCellWidth + 9) / 4 * 4;
        const int scratchHeight = s.shadowCellHeight + 6;
        std::vector<std::uint8_t> scratch;
        // Where in this caption each character was first made: its repeats copy those cells.
        std::unordered_map<char32_t, int> firstOf;
        for (int i = 0; i < count; ++i) {
            const auto at = static_cast<std::size_t>(i);
            const char32_t character = platform::CharacterToUnicode(block.glyphs[i].code, codePage);
            std::uint8_t* shadowCell = s.shadowBits.data() + at * shadowCellBytes;
            std::uint8_t* glyphCell = s.glyphBits.data() + at * glyphCellBytes;
            if (const auto earlier = firstOf.find(character); earlier != firstOf.end()) {
                const auto from = static_cast<std::size_t>(earlier->second);
                std::memcpy(shadowCell, s.shadowBits.data() + from * shadowCellBytes, shadowCellBytes);
                std::memcpy(glyphCell, s.glyphBits.data() + from * glyphCellBytes, glyphCellBytes);
                s.inkCountCell[at] = s.inkCountCell[from];
                s.shadowInk[at] = s.shadowInk[from];
                s.glyphInk[at] = s.glyphInk[from];
                s.glyphAdvances[at] = s.glyphAdvances[from];
                continue;
            }
            firstOf.emplace(character, i);
            RenderedCells cells;
            if (GlyphCache().Find(fontKey, character, shadow, cells)) {
                if (shadow)
                    std::memcpy(shadowCell, cells.shadow.data(), shadowCellBytes);
                std::memcpy(glyphCell, cells.glyph.data(), glyphCellBytes);
                s.shadowInk[at] = cells.shadowInk;
                s.glyphInk[at] = cells.glyphInk;
                s.glyphAdvances[at] = cells.advance;
                CountInk(glyphCell, newCountCell(at), s.glyphCellWidth, s.glyphCellHeight, s.glyphCellShift,
                         cells.glyphInk);
                continue;
            }
            if (shadow) {
                scratch.assign(static_cast<std::size_t>(scratchWidth) * scratchHeight, 255);
                const platform::GraySheet sheet{scratch.data(), scratchWidth, scratchHeight, scratchWidth,
                                                false};
                s.font->Draw(sheet, 6, m.ascent + 6, character);
                s.shadowInk[at] = SpreadShadow(scratch, scratchWidth, scratchHeight, shadowCell,
                                               s.shadowCellWidth, s.shadowCellHeight);
            }
            s.font->Draw(
                platform::GraySheet{glyphCell, s.glyphCellWidth, s.glyphCellHeight, s.glyphCellWidth, true},
                0, m.ascent, character);
            // A pixel reads the samples right of and above its own, so the box grows by one to the
            // left and downwards.
            InkBox ink = FindInk(glyphCell, s.glyphCellWidth, s.glyphCellHeight,
                                 [](std::uint8_t v) { return v == 0; });
            if (ink.right > ink.left) {
                ink.left = std::max(0, ink.left - 1);
                ink.bottom = std::min(s.glyphCellHeight, ink.bottom + 1);
            }
            s.glyphInk[at] = ink;
            CountInk(glyphCell, newCountCell(at), s.glyphCellWidth, s.glyphCellHeight, s.glyphCellShift, ink);
            const auto abc = s.font->Abc(character);
            s.glyphAdvances[at] =
                abc ? std::abs(abc->a) + abc->b + std::abs(abc->c) : m.maxCharWidth + m.overhang;
            cells.glyph.assign(glyphCell, glyphCell + glyphCellBytes);
            cells.glyphInk = ink;
            cells.advance = s.glyphAdvances[at];
            if (shadow)
                cells.shadow.assign(shadowCell, shadowCell + shadowCellBytes);
            cells.shadowInk = s.shadowInk[at];
            GlyphCache().Store(fontKey, character, std::move(cells));
        }
        return true;
    }();

    s.metrics = records::HalvedMetrics(s.metrics);
    record.effectState = Register(std::move(state));
    return built ? 1 : 0;
}

namespace {

// Where a glyph turns: about the centre of its cell (advance × cell height samples, in 16.16 sheet
// samples), which lands at (centreX, centreY) in 16.16 picture pixels when (x, y) is the glyph's origin.
struct GlyphPivot
{
    std::int64_t advance; // In sheet samples.
    std::int64_t sx, sy;
    std::int64_t centreU, centreV;
    std::int64_t centreX, centreY;
};

GlyphPivot PivotOf(const TextEffectState& s, std::int32_t x, std::int32_t y, std::int32_t glyphIndex,
                   std::int32_t scaleX, std::int32_t scaleY)
{
    GlyphPivot p{};
    p.sx = SheetScale(scaleX);
    p.sy = SheetScale(scaleY);
    p.advance = s.glyphAdvances[static_cast<std::size_t>(glyphIndex)];
    p.centreU = p.advance << 15;
    p.centreV = static_cast<std::int64_t>(s.glyphCellHeight) << 15;
    p.centreX = (static_cast<std::int64_t>(x) << 16) + ((p.centreU * p.sx) >> 16);
    p.centreY = (static_cast<std::int64_t>(y) << 16) +
                (((p.centreV - (static_cast<std::int64_t>(s.sheetAscent) << 16)) * p.sy) >> 16);
    return p;
}

} // namespace

std::int32_t DrawGlyph(TextEffectState& state, std::int32_t x, std::int32_t y, std::uint16_t character,
                       std::uint32_t colour, std::int32_t opacity, std::int32_t shadow,
                       std::int32_t glyphIndex, std::int32_t scaleX, std::int32_t scaleY, std::int32_t angle,
                       const PictureBand* band)
{
    (void)character;
    TextEffectState& s = state;
    if (s.dcBits == nullptr || s.width <= 0 || s.height <= 0 || glyphIndex < 0 ||
        static_cast<std::size_t>(glyphIndex) >= s.glyphAdvances.size() ||
        static_cast<std::size_t>(glyphIndex) >= s.glyphInk.size() ||
        static_cast<std::size_t>(glyphIndex) >= s.inkCountCell.size())
        return 1;
    PictureBand clip{0, 0, s.width, s.height};
    if (band != nullptr) {
        clip.left = std::max(clip.left, band->left);
        clip.top = std::max(clip.top, band->top);
        clip.right = std::min(clip.right, band->right);
        clip.bottom = std::min(clip.bottom, band->bottom);
    }
    angle = NormaliseAngle(angle);
    opacity = std::clamp(opacity, 0, 255);
    const GlyphPivot pivot = PivotOf(s, x, y, glyphIndex, scaleX, scaleY);
    const std::int64_t sx = pivot.sx, sy = pivot.sy;
    const std::int64_t centreU = pivot.centreU, centreV = pivot.centreV;
    const std::int64_t centreX = pivot.centreX, centreY = pivot.centreY;

    if (shadow != 0 && static_cast<std::size_t>(glyphIndex) < s.shadowInk.size()) {
        const std::int64_t offset = (std::abs(s.metrics.height) / 36 + 3) * std::int64_t{65536};
        // The shadow cell holds the glyph 6 samples in from its left and top edges.
        const std::int64_t shadowU = centreU + (6 << 16);
        const std::int64_t shadowV = centreV + (6 << 16);
        const InkBox& box = s.shadowInk[static_cast<std::size_t>(glyphIndex)];
        CellMapping map;
        if (MapCell(map, shadowU, shadowV, box, centreX + offset, centreY + offset, sx, sy, angle, clip)) {
            const std::uint8_t* cell = s.shadowBits.data() + static_cast<std::size_t>(glyphIndex) *
                                                                 s.shadowCellHeight * s.shadowCellWidth;
            DrawShadow(s, map, cell, box, opacity);
        }
    }

    // Only the glyph's own advance of its cell is drawn.
    InkBox box = s.glyphInk[static_cast<std::size_t>(glyphIndex)];
    box.right = static_cast<std::int32_t>(std::min<std::int64_t>(box.right, pivot.advance));
    CellMapping map;
    if (!MapCell(map, centreU, centreV, box, centreX, centreY, sx, sy, angle, clip))
        return 1;
    const std::uint8_t* counts =
        s.inkCounts.data() + static_cast<std::size_t>(s.inkCountCell[static_cast<std::size_t>(glyphIndex)]) *
                                 s.glyphCellHeight * s.glyphCellWidth;
    BlitGlyph(s, map, counts, box, static_cast<std::uint8_t>(colour >> 16),
              static_cast<std::uint8_t>(colour >> 8), static_cast<std::uint8_t>(colour), opacity / 4);
    return 1;
}

namespace {

// A box blur of `radius` along one axis of a cell: `count` lines of `length` samples, `stride` apart
// within a line and `lineStride` between lines. Rounded to nearest.
void BoxBlur(std::vector<std::uint16_t>& samples, std::vector<std::uint16_t>& line, int count, int length,
             std::size_t stride, std::size_t lineStride, int radius)
{
    const int window = 2 * radius + 1;
    line.resize(static_cast<std::size_t>(length));
    for (int l = 0; l < count; ++l) {
        std::uint16_t* base = samples.data() + static_cast<std::size_t>(l) * lineStride;
        for (int k = 0; k < length; ++k)
            line[static_cast<std::size_t>(k)] = base[static_cast<std::size_t>(k) * stride];
        int sum = 0;
        for (int k = 0; k < std::min(radius, length); ++k)
            sum += line[static_cast<std::size_t>(k)];
        for (int k = 0; k < length; ++k) {
            if (k + radius < length)
                sum += line[static_cast<std::size_t>(k + radius)];
            if (k - radius - 1 >= 0)
                sum -= line[static_cast<std::size_t>(k - radius - 1)];
            base[static_cast<std::size_t>(k) * stride] =
                static_cast<std::uint16_t>((sum + window / 2) / window);
        }
    }
}

} // namespace

bool BuildSoftCells(TextEffectState& state, const TextEffectParams& block,
                    std::span<const std::int32_t> radii)
{
    TextEffectState& s = state;
    s.soft = SoftCells{};
    const auto count = static_cast<int>(s.glyphAdvances.size());
    if (radii.empty() || radii.front() != 0 || count == 0 || block.glyphs == nullptr ||
        block.glyphCount < count || s.glyphCellWidth <= 0 || s.glyphCellHeight <= 0)
        return false;
    for (std::size_t l = 1; l < radii.size(); ++l) {
        if (radii[l] <= radii[l - 1] || radii[l] > 64)
            return false;
    }
    SoftCells soft;
    // Two passes of a box of radius r reach 2r samples out; one more for the 2 × 2 coverage.
    soft.margin = 2 * radii.back() + 1;
    soft.cellWidth = s.glyphCellWidth + 2 * soft.margin;
    soft.cellHeight = s.glyphCellHeight + 2 * soft.margin;
    soft.radii.assign(radii.begin(), radii.end());
    // Repeated characters share one cell.
    std::unordered_map<std::uint16_t, int> cellOfCode;
    soft.cellOf.resize(static_cast<std::size_t>(count));
    std::vector<int> firstGlyph;
    for (int i = 0; i < count; ++i) {
        const auto [found, fresh] =
            cellOfCode.emplace(block.glyphs[i].code, static_cast<int>(firstGlyph.size()));
        if (fresh)
            firstGlyph.push_back(i);
        soft.cellOf[static_cast<std::size_t>(i)] = found->second;
    }
    const std::size_t cellSamples = static_cast<std::size_t>(soft.cellWidth) * soft.cellHeight;
    const auto cells = static_cast<std::int64_t>(firstGlyph.size());
    if (static_cast<std::int64_t>(cellSamples) * cells * static_cast<std::int64_t>(radii.size()) >
        kMaxSheetBytes)
        return false;
    soft.levels.assign(radii.size(), std::vector<std::uint8_t>(cellSamples * firstGlyph.size(), 0));
    soft.ink.assign(firstGlyph.size(), InkBox{});
    soft.rowRuns.assign(radii.size(), std::vector<SoftCells::RowRun>(
                                          static_cast<std::size_t>(soft.cellHeight) * firstGlyph.size()));

    std::vector<std::uint16_t> coverage(cellSamples), blurred(cellSamples), line;
    const std::int64_t glyphCellBytes = std::int64_t{s.glyphCellWidth} * s.glyphCellHeight;
    for (std::size_t c = 0; c < firstGlyph.size(); ++c) {
        const int i = firstGlyph[c];
        const std::uint8_t* cell = s.glyphBits.data() + static_cast<std::size_t>(i * glyphCellBytes);
        // Only the glyph's advance is drawn, as DrawGlyph does.
        const int columns = std::min(s.glyphCellWidth, s.glyphAdvances[static_cast<std::size_t>(i)]);
        auto ink = [&](int u, int v) { // Counted from the cell's top; 1 for an ink sample.
            if (u < 0 || u >= columns || v < 0 || v >= s.glyphCellHeight)
                return 0;
            return cell[(static_cast<std::size_t>(s.glyphCellHeight - 1 - v) << s.glyphCellShift) +
                        static_cast<std::size_t>(u)] == 0
                       ? 1
                       : 0;
        };
        // The coverage a pixel reads at (u, v): the sample, its right neighbour and the two above them.
        std::fill(coverage.begin(), coverage.end(), 0);
        for (int v = 0; v <= s.glyphCellHeight; ++v) {
            for (int u = -1; u < columns; ++u) {
                const int k = ink(u, v) + ink(u + 1, v) + ink(u, v - 1) + ink(u + 1, v - 1);
                coverage[static_cast<std::size_t>(v + soft.margin) * soft.cellWidth +
                         static_cast<std::size_t>(u + soft.margin)] = static_cast<std::uint16_t>(k * 255 / 4);
            }
        }
        InkBox box{soft.cellWidth, soft.cellHeight, 0, 0};
        for (std::size_t l = 0; l < radii.size(); ++l) {
            blurred = coverage;
            const int r = radii[l];
            if (r > 0) {
                for (int pass = 0; pass < 2; ++pass) {
                    BoxBlur(blurred, line, soft.cellHeight, soft.cellWidth, 1,
                            static_cast<std::size_t>(soft.cellWidth), r);
                    BoxBlur(blurred, line, soft.cellWidth, soft.cellHeight,
                            static_cast<std::size_t>(soft.cellWidth), 1, r);
                }
            }
            std::uint8_t* out = soft.levels[l].data() + c * cellSamples;
            SoftCells::RowRun* runs = soft.rowRuns[l].data() + c * static_cast<std::size_t>(soft.cellHeight);
            for (int v = 0; v < soft.cellHeight; ++v) {
                SoftCells::RowRun& run = runs[v];
                run = {soft.cellWidth, 0};
                for (int u = 0; u < soft.cellWidth; ++u) {
                    const std::size_t at =
                        static_cast<std::size_t>(v) * soft.cellWidth + static_cast<std::size_t>(u);
                    // The far tail of the blur is too faint to see; dropping it keeps the boxes (and
                    // the pixels a frame visits) small.
                    constexpr int kFaintest = 8;
                    out[at] = blurred[at] < kFaintest
                                  ? 0
                                  : static_cast<std::uint8_t>(std::min<int>(blurred[at], 255));
                    if (out[at] == 0)
                        continue;
                    run.left = std::min(run.left, u);
                    run.right = std::max(run.right, u + 1);
                    box.left = std::min(box.left, u);
                    box.right = std::max(box.right, u + 1);
                    box.top = std::min(box.top, v);
                    box.bottom = std::max(box.bottom, v + 1);
                }
            }
        }
        soft.ink[c] = box.right > box.left ? box : InkBox{};
    }
    s.soft = std::move(soft);
    return true;
}

std::int32_t DrawSoftGlyph(TextEffectState& state, std::int32_t x, std::int32_t y, std::uint32_t colour,
                           std::int32_t opacity, std::int32_t glyphIndex, std::int32_t blur,
                           std::int32_t scaleX, std::int32_t scaleY, std::int32_t angle)
{
    TextEffectState& s = state;
    const SoftCells& soft = s.soft;
    if (s.dcBits == nullptr || s.width <= 0 || s.height <= 0 || soft.levels.empty() || glyphIndex < 0 ||
        static_cast<std::size_t>(glyphIndex) >= soft.cellOf.size() ||
        static_cast<std::size_t>(glyphIndex) >= s.glyphAdvances.size())
        return 1;
    opacity = std::clamp(opacity, 0, 255);
    if (opacity == 0)
        return 1;
    angle = NormaliseAngle(angle);
    const int top = static_cast<int>(soft.levels.size() - 1) * 256;
    const int level = std::clamp(blur, 0, top);
    const auto lower = static_cast<std::size_t>(level >> 8);
    const int fraction = level & 255;
    const std::size_t upper = std::min(lower + 1, soft.levels.size() - 1);
    const auto cellIndex = static_cast<std::size_t>(soft.cellOf[static_cast<std::size_t>(glyphIndex)]);
    const std::size_t cellSamples = static_cast<std::size_t>(soft.cellWidth) * soft.cellHeight;
    const std::uint8_t* a = soft.levels[lower].data() + cellIndex * cellSamples;
    const std::uint8_t* b = soft.levels[upper].data() + cellIndex * cellSamples;

    // The same turning centre and origin as DrawGlyph, moved into the margin below.
    const GlyphPivot pivot = PivotOf(s, x, y, glyphIndex, scaleX, scaleY);
    const std::int64_t sx = pivot.sx, sy = pivot.sy;
    const std::int64_t centreU = pivot.centreU, centreV = pivot.centreV;
    const std::int64_t centreX = pivot.centreX, centreY = pivot.centreY;
    const std::int64_t margin = std::int64_t{soft.margin} << 16;
    // Coverage is stored at the sample the mapping names (the lower of the pair the sharp blit reads).
    const InkBox& box = soft.ink[cellIndex];
    CellMapping map;
    if (!MapCell(map, centreU + margin, centreV + margin, box, centreX, centreY, sx, sy, angle,
                 PictureBand{0, 0, s.width, s.height}))
        return 1;
    const auto blue = static_cast<int>((colour >> 16) & 255);
    const auto green = static_cast<int>((colour >> 8) & 255);
    const auto red = static_cast<int>(colour & 255);
    const std::int64_t width = soft.cellWidth;
    // Upright rows visit only the columns that have coverage at either of the two levels.
    const SoftCells::RowRun* runsA = soft.rowRuns[lower].data() + cellIndex * soft.cellHeight;
    const SoftCells::RowRun* runsB = soft.rowRuns[upper].data() + cellIndex * soft.cellHeight;
    auto rowRun = [&](std::int64_t sv, std::int64_t& left, std::int64_t& right) {
        const SoftCells::RowRun& runA = runsA[sv];
        const SoftCells::RowRun& runB = runsB[sv];
        left = std::max<std::int64_t>(left, std::min(runA.left, runB.left));
        right = std::min<std::int64_t>(right, std::max(runA.right, runB.right));
    };
    // The weight of sample `at`: its coverage (between the two levels) times the opacity, up to 65025.
    auto weightAt = [&](std::int64_t at) {
        int c = a[at];
        if (fraction != 0)
            c += ((b[at] - c) * fraction) >> 8;
        return c * opacity;
    };
    // No test for a weight of 0 below: it leaves the pixel as it is, and a branch on it is mispredicted
    // all along the glyph's edges. Arithmetic shifts round negative steps down, as the sharp blend does.
    auto blendPixel = [&](std::uint8_t* out, int weight) {
        out[0] = static_cast<std::uint8_t>(out[0] + (((blue - out[0]) * weight) >> 16));
        out[1] = static_cast<std::uint8_t>(out[1] + (((green - out[1]) * weight) >> 16));
        out[2] = static_cast<std::uint8_t>(out[2] + (((red - out[2]) * weight) >> 16));
    };
    const bool wide = SoftRunSse2Built() && platform::Simd().sse2;
    auto uprightRun = [&](std::uint8_t* out, std::int64_t u, std::int64_t stepU, std::int64_t sv,
                          std::int64_t count) {
        const std::int64_t row = sv * width;
        std::int64_t k = 0;
        if (wide) {
            k = BlendSoftRunSse2(out, a + row, b + row, fraction, opacity, u, stepU, count, colour);
            u += k * stepU;
            out += k * 4;
        }
        for (; k < count; ++k, u += stepU, out += 4)
            blendPixel(out, weightAt(row + (u >> 16)));
    };
    ForEachSample(
        s, map, box,
        [&](std::uint8_t* out, std::int64_t su, std::int64_t sv) {
            blendPixel(out, weightAt(sv * width + su));
        },
        rowRun, uprightRun);
    return 1;
}

} // namespace lumenar::effects
