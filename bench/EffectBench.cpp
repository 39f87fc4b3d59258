// Time of one render of every built picture row at 800 × 600, next to a plain copy of one frame.
#include "effects/EffectRegistry.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using namespace lumenar::effects;

constexpr int kWidth = 800;
constexpr int kHeight = 600;
constexpr std::size_t kBytes = static_cast<std::size_t>(kWidth) * kHeight * 4;

struct Frames
{
    std::vector<std::uint8_t> source, target, output;
    Frames() : source(kBytes), target(kBytes), output(kBytes)
    {
        std::mt19937 random(1);
        for (std::size_t i = 0; i < kBytes; ++i) {
            source[i] = static_cast<std::uint8_t>(random());
            target[i] = static_cast<std::uint8_t>(random());
        }
    }
};

Frames& SharedFrames()
{
    static Frames frames;
    return frames;
}

void FrameCopy(benchmark::State& state)
{
    Frames& f = SharedFrames();
    for (auto _ : state) {
        std::memcpy(f.output.data(), f.source.data(), kBytes);
        benchmark::DoNotOptimize(f.output.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(kBytes));
}
BENCHMARK(FrameCopy);

// Arguments: picture row, progress in percent.
void Render(benchmark::State& state)
{
    EffectRegistry::FixSeed(1);
    EffectRegistry registry;
    Frames& f = SharedFrames();
    const int row = static_cast<int>(state.range(0));
    EffectParams block{};
    block.source = f.source.data();
    block.target = f.target.data();
    block.output = f.output.data();
    block.width = kWidth;
    block.height = kHeight;
    block.progressNum = 0;
    block.progressDen = 100;
    registry.RunPicture(row, EffectInit, &block);
    block.progressNum = static_cast<std::int32_t>(state.range(1));
    for (auto _ : state) {
        registry.RunPicture(row, EffectRender, &block);
        benchmark::DoNotOptimize(f.output.data());
        benchmark::ClobberMemory();
    }
    registry.RunPicture(row, EffectRelease, nullptr);
    state.SetLabel(registry.Describe(kPictureTable, row).procName);
}

void BuiltRows(benchmark::internal::Benchmark* bench)
{
    EffectRegistry registry;
    for (int row = 0; row < kPictureEffectCount - 1; ++row) {
        if (registry.Describe(kPictureTable, row).built != Built::Yes)
            continue;
        for (int percent : {25, 50, 75})
            bench->Args({row, percent});
    }
}
BENCHMARK(Render)->Apply(BuiltRows);

} // namespace

BENCHMARK_MAIN();
