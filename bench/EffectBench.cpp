// Time of one render of every built picture row at 800 × 600 and 1920 × 1080, next to a plain copy of one
// frame of the same size.
#include "effects/EffectRegistry.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using namespace lumenar::effects;

struct Frames
{
    int width, height;
    std::vector<std::uint8_t> source, target, output;
    Frames(int w, int h) : width(w), height(h), source(Bytes()), target(Bytes()), output(Bytes())
    {
        std::mt19937 random(1);
        for (std::size_t i = 0; i < Bytes(); ++i) {
            source[i] = static_cast<std::uint8_t>(random());
            target[i] = static_cast<std::uint8_t>(random());
        }
    }
    std::size_t Bytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    }
};

// Argument 0 is 800 × 600, 1 is 1920 × 1080.
Frames& SharedFrames(std::int64_t size)
{
    static Frames small(800, 600), large(1920, 1080);
    return size == 0 ? small : large;
}

// Argument: the size.
void FrameCopy(benchmark::State& state)
{
    Frames& f = SharedFrames(state.range(0));
    for (auto _ : state) {
        std::memcpy(f.output.data(), f.source.data(), f.Bytes());
        benchmark::DoNotOptimize(f.output.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(f.Bytes()));
}
BENCHMARK(FrameCopy)->Arg(0)->Arg(1);

// Arguments: picture row, progress in percent, size.
void Render(benchmark::State& state)
{
    EffectRegistry::FixSeed(1);
    EffectRegistry registry;
    Frames& f = SharedFrames(state.range(2));
    const int row = static_cast<int>(state.range(0));
    EffectParams block{};
    block.source = f.source.data();
    block.target = f.target.data();
    block.output = f.output.data();
    block.width = f.width;
    block.height = f.height;
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
            bench->Args({row, percent, 0});
        bench->Args({row, 50, 1});
    }
}
BENCHMARK(Render)->Apply(BuiltRows);

} // namespace

BENCHMARK_MAIN();
