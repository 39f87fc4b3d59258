// Time of one caption frame at 800 × 600 (the clean picture copied into the display, then every caption
// of the item rendered by its text effect) for each built text effect, and of preparing the captions'
// glyph sheets, next to a plain copy of one frame.
#include "effects/EffectRegistry.h"
#include "effects/TextEffectFramework.h"
#include "playback/CaptionLayout.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace lumenar;
using namespace lumenar::effects;

constexpr int kWidth = 800;
constexpr int kHeight = 600;
constexpr std::size_t kBytes = static_cast<std::size_t>(kWidth) * kHeight * 4;

struct Pictures
{
    std::vector<std::uint8_t> clean, display;
    Pictures() : clean(kBytes), display(kBytes)
    {
        for (std::size_t i = 0; i < kBytes; ++i)
            clean[i] = static_cast<std::uint8_t>(i * 7 / 4096);
    }
};

Pictures& SharedPictures()
{
    static Pictures pictures;
    return pictures;
}

// The captions of one item, laid out as the sequencer does at the start of its caption animation.
struct Item
{
    std::vector<records::TextRecord> records;
    std::vector<std::array<records::Glyph, records::kGlyphBufferGlyphs>> glyphs;
    std::vector<int> counts;

    Item(int captions, int glyphsEach)
        : records(static_cast<std::size_t>(captions)), glyphs(records.size()), counts(records.size())
    {
        // Lines of at most 32 characters.
        std::string text;
        for (int i = 0; i < glyphsEach; ++i) {
            if (i > 0 && i % 32 == 0)
                text += "\r\n";
            text += static_cast<char>('A' + (i * 7) % 26 + (i % 3 == 0 ? 32 : 0));
        }
        for (std::size_t c = 0; c < records.size(); ++c) {
            records::TextRecord& r = records[c];
            r = {};
            std::strcpy(r.font.faceName, "Arial");
            r.font.height = -48;
            r.font.weight = 400;
            r.colour = 0xFFFFFF;
            r.lineSpacing = 100;
            r.shadow = 1;
            r.x = 20 + static_cast<int>(c % 2) * 40;
            r.y = 20 + static_cast<int>(c) * 50;
            std::int32_t extent[2] = {0, 0};
            counts[c] = playback::LayoutCaption(r, text.c_str(), glyphs[c], extent);
            r.extentWidth = extent[0];
            r.extentHeight = extent[1];
        }
    }

    TextEffectParams Block(std::size_t c, int num, int den)
    {
        TextEffectParams block{};
        block.size = 40;
        block.dcBits = SharedPictures().display.data();
        block.text = &records[c];
        block.glyphs = glyphs[c].data();
        block.glyphCount = counts[c];
        block.width = kWidth;
        block.height = kHeight;
        block.progressNum = num;
        block.progressDen = den;
        return block;
    }
};

Item& SharedItem(bool worst)
{
    static Item typical(3, 30);
    static Item heavy(10, 256);
    return worst ? heavy : typical;
}

const char* CaseName(bool worst)
{
    return worst ? "10x256 glyphs" : "3x30 glyphs";
}

void FrameCopy(benchmark::State& state)
{
    Pictures& p = SharedPictures();
    for (auto _ : state) {
        std::memcpy(p.display.data(), p.clean.data(), kBytes);
        benchmark::DoNotOptimize(p.display.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(FrameCopy)->Unit(benchmark::kMicrosecond);

// Arguments: text row, worst case (0/1), progress in percent.
void CaptionFrame(benchmark::State& state)
{
    EffectRegistry::FixSeed(1);
    EffectRegistry registry;
    const int row = static_cast<int>(state.range(0));
    const bool worst = state.range(1) != 0;
    const int percent = static_cast<int>(state.range(2));
    Item& item = SharedItem(worst);
    Pictures& p = SharedPictures();
    for (std::size_t c = 0; c < item.records.size(); ++c)
        registry.RunText(row, EffectInit, item.Block(c, 0, 100));
    for (auto _ : state) {
        std::memcpy(p.display.data(), p.clean.data(), kBytes);
        for (std::size_t c = 0; c < item.records.size(); ++c)
            registry.RunText(row, EffectRender, item.Block(c, percent * 30, 3000));
        benchmark::ClobberMemory();
    }
    for (std::size_t c = 0; c < item.records.size(); ++c)
        registry.RunText(row, EffectRelease, item.Block(c, 0, 1));
    state.SetLabel(std::string(TextEffectTable()[row].procName) + ", " + CaseName(worst));
}
// Every row of the text table but the random one, mid-way through the typical caption set; the worst set
// for a few rows of each kind.
void CaptionRows(benchmark::internal::Benchmark* b)
{
    for (int row = 0; row < kTextEffectCount - 1; ++row)
        b->Args({row, 0, 50});
    for (int row : {4, 0, 31})
        b->Args({row, 1, 50});
}
BENCHMARK(CaptionFrame)->Apply(CaptionRows)->Unit(benchmark::kMicrosecond);

// The one-off preparation of every caption of the item (font, glyph sheet, shadow sheet) and its release:
// the first caption of its font in the process ("cold"), and captions after it ("warm").
void EffectInitCost(benchmark::State& state)
{
    EffectRegistry registry;
    const bool worst = state.range(0) != 0;
    const bool cold = state.range(1) != 0;
    Item& item = SharedItem(worst);
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            ForgetRenderedGlyphs();
            state.ResumeTiming();
        }
        for (std::size_t c = 0; c < item.records.size(); ++c)
            registry.RunText(4, EffectInit, item.Block(c, 0, 100));
        for (std::size_t c = 0; c < item.records.size(); ++c)
            registry.RunText(4, EffectRelease, item.Block(c, 0, 1));
    }
    state.SetLabel(std::string(CaseName(worst)) + (cold ? ", cold" : ", warm"));
}
BENCHMARK(EffectInitCost)
    ->Args({0, 1})
    ->Args({0, 0})
    ->Args({1, 1})
    ->Args({1, 0})
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
