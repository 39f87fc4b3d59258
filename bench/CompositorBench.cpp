// Fitting a photo into the 800 × 600 frame, next to a plain copy of one frame (the peer).
#include "codec/Photo.h"
#include "playback/FrameCompositor.h"
#include "tests/support/JpegWriter.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

using namespace lumenar;

void FrameCopy(benchmark::State& state)
{
    std::vector<std::uint8_t> from(800 * 600 * 4, 1), to(800 * 600 * 4);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), to.size());
        benchmark::DoNotOptimize(to.data());
    }
}
BENCHMARK(FrameCopy);

void RenderPhoto(benchmark::State& state)
{
    int width = static_cast<int>(state.range(0));
    int height = width * 3 / 4;
    testing::ZigzagBlock block(64, 0);
    block[0] = 200;
    block[1] = 40; // Some texture, so that the picture is not flat.
    codec::Photo photo;
    if (codec::DecodePhoto(photo, testing::MakeUniformPhoto(width, height, block)) != 1) {
        state.SkipWithError("photo did not decode");
        return;
    }
    playback::FrameCompositor compositor(800, 600, 800, 600);
    compositor.Open();
    std::vector<std::uint8_t> destination(800 * 600 * 4);
    for (auto _ : state) {
        compositor.RenderPhoto(&photo, nullptr, {}, destination.data());
        benchmark::DoNotOptimize(destination.data());
    }
}
BENCHMARK(RenderPhoto)->Arg(800)->Arg(1600)->Arg(4000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
