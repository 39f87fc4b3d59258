#include "effects/TextEffectFramework.h"

#include "platform/CodePage.h"
#include "playback/records/CaptionFont.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>

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
// edge is soft, and scaled to at most 192 so the picture still shows through the densest part.
void SpreadShadow(const std::vector<std::uint8_t>& scratch, int scratchWidth, int scratchHeight,
                  std::uint8_t* cell, int cellWidth, int cellHeight)
{
    constexpr int kRadius = 2;
    constexpr int kBox = (2 * kRadius + 1) * (2 * kRadius + 1);
    constexpr int kStrongest = 192;
    std::vector<int> rowSums(static_cast<std::size_t>(scratchWidth) * scratchHeight, 0);
    for (int y = 0; y < scratchHeight; ++y) {
        const std::uint8_t* in = scratch.data() + static_cast<std::size_t>(y) * scratchWidth;
        int* out = rowSums.data() + static_cast<std::size_t>(y) * scratchWidth;
        for (int x = 0; x < scratchWidth; ++x) {
            int sum = 0;
            for (int k = std::max(0, x - kRadius); k <= std::min(scratchWidth - 1, x + kRadius); ++k)
                sum += in[k] == 0 ? 1 : 0;
            out[x] = sum;
        }
    }
    const int rows = std::min(cellHeight, scratchHeight);
    const int columns = std::min(cellWidth, scratchWidth);
    for (int y = 0; y < rows; ++y) {
        // Cells are stored bottom row first.
        std::uint8_t* out = cell + static_cast<std::size_t>(cellHeight - 1 - y) * cellWidth;
        for (int x = 0; x < columns; ++x) {
            int sum = 0;
            for (int k = std::max(0, y - kRadius); k <= std::min(scratchHeight - 1, y + kRadius); ++k)
                sum += rowSums[static_cast<std::size_t>(k) * scratchWidth + x];
            out[x] = static_cast<std::uint8_t>(sum * kStrongest / kBox);
        }
    }
}

// Where the pixels of a turned and scaled cell come from. Source positions are 16.16 sheet samples
// counted from the cell's left and top edges; destination pixels are counted from the picture's top.
struct CellMapping
{
    int left = 0, top = 0, right = 0, bottom = 0; // Destination box, clipped; right and bottom exclusive.
    std::int64_t centreU = 0, centreV = 0;        // Turning centre in the sheet (16.16 samples).
    std::int64_t centreX = 0, centreY = 0;        // The same point in the picture (16.16 pixels).
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

// Maps a cell whose turning centre is (centreU, centreV) samples and which reaches `reachU` and `reachV`
// samples from it at most, turned about that centre and placed with the centre at (centreX, centreY).
// Returns false when the box misses the picture.
bool MapCell(CellMapping& map, std::int64_t centreU, std::int64_t centreV, std::int64_t reachU, std::int64_t reachV,
             std::int64_t centreX, std::int64_t centreY, std::int64_t sx, std::int64_t sy, std::int32_t angle,
             std::int32_t width, std::int32_t height)
{
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
    const std::int64_t halfWidth = reachU * std::llabs(sx);  // 16.16 pixels.
    const std::int64_t halfHeight = reachV * std::llabs(sy); // 16.16 pixels.
    const std::int64_t absCos = std::llabs(map.cosine);
    const std::int64_t absSin = std::llabs(map.sine);
    const std::int64_t extentX = ((halfWidth * absCos + halfHeight * absSin) >> 16) + 0x10000;
    const std::int64_t extentY = ((halfWidth * absSin + halfHeight * absCos) >> 16) + 0x10000;
    const std::int64_t left = std::max<std::int64_t>(0, (centreX - extentX) >> 16);
    const std::int64_t top = std::max<std::int64_t>(0, (centreY - extentY) >> 16);
    const std::int64_t right = std::min<std::int64_t>(width, ((centreX + extentX) >> 16) + 1);
    const std::int64_t bottom = std::min<std::int64_t>(height, ((centreY + extentY) >> 16) + 1);
    if (left >= right || top >= bottom)
        return false;
    map.left = static_cast<int>(left);
    map.top = static_cast<int>(top);
    map.right = static_cast<int>(right);
    map.bottom = static_cast<int>(bottom);
    return true;
}

std::uint8_t* PixelAt(std::uint8_t* bits, std::int32_t width, std::int32_t height, int x, int y)
{
    return bits + (static_cast<std::size_t>(height - 1 - y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4;
}

void DrawShadow(TextEffectState& s, const CellMapping& map, const std::uint8_t* cell, int opacity)
{
    const std::uint8_t* clamp = ClampTable();
    for (int y = map.top; y < map.bottom; ++y) {
        std::int64_t u = 0, v = 0;
        map.Source(map.left, y, u, v);
        const std::int64_t stepU = map.StepUX();
        const std::int64_t stepV = map.StepVX();
        std::uint8_t* out = PixelAt(s.dcBits, s.width, s.height, map.left, y);
        for (int x = map.left; x < map.right; ++x, u += stepU, v += stepV, out += 4) {
            const std::int64_t su = u >> 16;
            const std::int64_t sv = v >> 16;
            if (su < 0 || su >= s.shadowCellWidth || sv < 0 || sv >= s.shadowCellHeight)
                continue;
            const int sample = cell[((s.shadowCellHeight - 1 - sv) << s.shadowCellShift) + su];
            const int amount = sample - (255 - opacity);
            if (amount <= 0)
                continue;
            out[0] = clamp[out[0] - amount];
            out[1] = clamp[out[1] - amount];
            out[2] = clamp[out[2] - amount];
        }
    }
}

void BlitGlyph(TextEffectState& s, const CellMapping& map, const std::uint8_t* cell, std::int64_t usableWidth,
               std::uint8_t blue, std::uint8_t green, std::uint8_t red, int alpha)
{
    const std::int64_t cellHeight = s.glyphCellHeight;
    const std::int64_t cellWidth = s.glyphCellWidth;
    const int shift = s.glyphCellShift;
    for (int y = map.top; y < map.bottom; ++y) {
        std::int64_t u = 0, v = 0;
        map.Source(map.left, y, u, v);
        const std::int64_t stepU = map.StepUX();
        const std::int64_t stepV = map.StepVX();
        std::uint8_t* out = PixelAt(s.dcBits, s.width, s.height, map.left, y);
        for (int x = map.left; x < map.right; ++x, u += stepU, v += stepV, out += 4) {
            const std::int64_t su = u >> 16;
            const std::int64_t sv = v >> 16;
            if (su < 0 || su >= usableWidth || sv < 0 || sv >= cellHeight)
                continue;
            // The sample, its right neighbour, the one above and the one above right (bottom-up cell).
            const std::int64_t row = cellHeight - 1 - sv;
            const std::uint8_t* here = cell + (row << shift) + su;
            const bool hasRight = su + 1 < cellWidth;
            const bool hasUpper = row + 1 < cellHeight;
            int ink = here[0] == 0 ? 1 : 0;
            if (hasRight && here[1] == 0)
                ++ink;
            if (hasUpper) {
                const std::uint8_t* upper = here + cellWidth;
                if (upper[0] == 0)
                    ++ink;
                if (hasRight && upper[1] == 0)
                    ++ink;
            }
            if (ink == 0)
                continue;
            out[0] = BlendInk(out[0], blue, ink, alpha);
            out[1] = BlendInk(out[1], green, ink, alpha);
            out[2] = BlendInk(out[2], red, ink, alpha);
        }
    }
}

int Half(int value)
{
    return value / 2;
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
        auto font = platform::Font::Create(records::CaptionFontRequest(record.font, 2));
        if (!font.ok())
            return false;
        s.font = std::move(*font);
        s.metrics = s.font->Metrics();
        const platform::TextMetrics& m = s.metrics;
        s.sheetAscent = m.ascent;
        const int codePage = platform::ActiveCodePage();

        // The shadow sheet, with a margin of 6 samples for the spread shadow.
        PowerOfTwoCell(m.maxCharWidth + m.overhang + 6, s.shadowCellWidth, s.shadowCellShift);
        s.shadowCellHeight = m.height + 6;
        if (!SheetFits(s.shadowCellWidth, s.shadowCellHeight, count))
            return false;
        s.shadowSheetHeight = s.shadowCellHeight * count;
        s.shadowBits.assign(static_cast<std::size_t>(s.shadowCellWidth) * static_cast<std::size_t>(s.shadowSheetHeight), 0);
        if (record.shadow != 0) {
            const int scratchWidth = (s.shadowCellWidth + 9) / 4 * 4;
            const int scratchHeight = s.shadowCellHeight + 6;
            std::vector<std::uint8_t> scratch(static_cast<std::size_t>(scratchWidth) * scratchHeight);
            for (int i = 0; i < count; ++i) {
                std::fill(scratch.begin(), scratch.end(), std::uint8_t{255});
                const platform::GraySheet sheet{scratch.data(), scratchWidth, scratchHeight, scratchWidth, false};
                s.font->Draw(sheet, 6, m.ascent + 6, platform::CharacterToUnicode(block.glyphs[i].code, codePage));
                std::uint8_t* cell = s.shadowBits.data() + static_cast<std::size_t>(i) * s.shadowCellHeight * s.shadowCellWidth;
                SpreadShadow(scratch, scratchWidth, scratchHeight, cell, s.shadowCellWidth, s.shadowCellHeight);
            }
        }

        // The glyph sheet: ink 0 on 255, each glyph on the baseline of its own cell.
        PowerOfTwoCell(m.maxCharWidth + m.overhang, s.glyphCellWidth, s.glyphCellShift);
        s.glyphCellHeight = m.height;
        if (!SheetFits(s.glyphCellWidth, s.glyphCellHeight, count))
            return false;
        s.glyphSheetHeight = s.glyphCellHeight * count;
        s.glyphBits.assign(static_cast<std::size_t>(s.glyphCellWidth) * static_cast<std::size_t>(s.glyphSheetHeight), 255);
        s.glyphAdvances.resize(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            const char32_t character = platform::CharacterToUnicode(block.glyphs[i].code, codePage);
            std::uint8_t* cell = s.glyphBits.data() + static_cast<std::size_t>(i) * s.glyphCellHeight * s.glyphCellWidth;
            s.font->Draw(platform::GraySheet{cell, s.glyphCellWidth, s.glyphCellHeight, s.glyphCellWidth, true}, 0,
                         m.ascent, character);
            const auto abc = s.font->Abc(character);
            s.glyphAdvances[static_cast<std::size_t>(i)] =
                abc ? std::abs(abc->a) + abc->b + std::abs(abc->c) : m.maxCharWidth + m.overhang;
        }
        return true;
    }();

    platform::TextMetrics& m = s.metrics;
    m.height = Half(m.height);
    m.ascent = Half(m.ascent);
    m.descent = Half(m.descent);
    m.internalLeading = Half(m.internalLeading);
    m.aveCharWidth = Half(m.aveCharWidth);
    m.maxCharWidth = Half(m.maxCharWidth);
    m.overhang = Half(m.overhang);
    record.effectState = Register(std::move(state));
    return built ? 1 : 0;
}

std::int32_t DrawGlyph(TextEffectState& state, std::int32_t x, std::int32_t y, std::uint16_t character,
                       std::uint32_t colour, std::int32_t opacity, std::int32_t shadow, std::int32_t glyphIndex,
                       std::int32_t scaleX, std::int32_t scaleY, std::int32_t angle)
{
    (void)character; // The sheets already hold each glyph's character.
    TextEffectState& s = state;
    if (s.dcBits == nullptr || s.width <= 0 || s.height <= 0 || glyphIndex < 0 ||
        static_cast<std::size_t>(glyphIndex) >= s.glyphAdvances.size())
        return 1;
    angle = NormaliseAngle(angle);
    opacity = std::clamp(opacity, 0, 255);
    const std::int64_t sx = SheetScale(scaleX);
    const std::int64_t sy = SheetScale(scaleY);
    const std::int64_t advance = s.glyphAdvances[static_cast<std::size_t>(glyphIndex)];
    // The glyph turns about the centre of its cell (advance × cell height samples); (x, y) is its origin.
    const std::int64_t centreU = advance << 15;
    const std::int64_t centreV = static_cast<std::int64_t>(s.glyphCellHeight) << 15;
    const std::int64_t centreX = (static_cast<std::int64_t>(x) << 16) + ((centreU * sx) >> 16);
    const std::int64_t centreY =
        (static_cast<std::int64_t>(y) << 16) + (((centreV - (static_cast<std::int64_t>(s.sheetAscent) << 16)) * sy) >> 16);

    if (shadow != 0 && s.shadowCellHeight > 0) {
        const std::int64_t offset = (std::abs(s.metrics.height) / 36 + 3) * std::int64_t{65536};
        // The shadow cell holds the glyph 6 samples in from its left and top edges.
        const std::int64_t shadowU = centreU + (6 << 16);
        const std::int64_t shadowV = centreV + (6 << 16);
        const std::int64_t reachU = std::max<std::int64_t>(shadowU >> 16, s.shadowCellWidth - (shadowU >> 16)) + 1;
        const std::int64_t reachV = std::max<std::int64_t>(shadowV >> 16, s.shadowCellHeight - (shadowV >> 16)) + 1;
        CellMapping map;
        if (MapCell(map, shadowU, shadowV, reachU, reachV, centreX + offset, centreY + offset, sx, sy, angle, s.width,
                    s.height)) {
            const std::uint8_t* cell =
                s.shadowBits.data() + static_cast<std::size_t>(glyphIndex) * s.shadowCellHeight * s.shadowCellWidth;
            DrawShadow(s, map, cell, opacity);
        }
    }

    const std::int64_t usableWidth = std::min<std::int64_t>(advance, s.glyphCellWidth);
    const std::int64_t reachU = (advance >> 1) + 1;
    const std::int64_t reachV = (s.glyphCellHeight >> 1) + 1;
    CellMapping map;
    if (!MapCell(map, centreU, centreV, reachU, reachV, centreX, centreY, sx, sy, angle, s.width, s.height))
        return 1;
    const std::uint8_t* cell =
        s.glyphBits.data() + static_cast<std::size_t>(glyphIndex) * s.glyphCellHeight * s.glyphCellWidth;
    BlitGlyph(s, map, cell, usableWidth, static_cast<std::uint8_t>(colour >> 16), static_cast<std::uint8_t>(colour >> 8),
              static_cast<std::uint8_t>(colour), opacity / 4);
    return 1;
}

} // namespace lumenar::effects
