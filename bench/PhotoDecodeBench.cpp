// Photo decoding from memory to the 32-bit picture: our fast path, our portable path and libjpeg-turbo
// (fast integer transform, no fancy upsampling, BGRX out) on the same photos in the same run. The photos
// are drawn by ImageMagick (plasma:fractal, fixed seed; with "detail:1" also Gaussian noise, a heavily
// textured photo at about twice the bits per pixel) and encoded by cjpeg at quality 85 when the program
// starts. Counter "MP/s": megapixels decoded per second.
#include "codec/Photo.h"
#include "tests/support/ReferenceJpeg.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>

namespace {

using namespace lumenar;

const std::vector<std::uint8_t>& PhotoBytes(int width, int height, const char* sampling, bool detail)
{
    static std::map<std::string, std::vector<std::uint8_t>> cache;
    const std::string key =
        std::to_string(width) + "x" + std::to_string(height) + "-" + sampling + (detail ? "-detail" : "");
    auto found = cache.find(key);
    if (found != cache.end())
        return found->second;
    // Other checkouts may run this at the same time: the files carry a random tag.
    const auto dir = std::filesystem::temp_directory_path();
    static const std::string tag = std::to_string(std::random_device{}());
    const std::string ppm = (dir / ("lumenar-bench-" + tag + "-" + key + ".ppm")).string();
    const std::string jpg = (dir / ("lumenar-bench-" + tag + "-" + key + ".jpg")).string();
    const std::string draw = "convert -size " + std::to_string(width) + "x" + std::to_string(height) +
                             " -seed 7 plasma:fractal " + (detail ? "-attenuate 0.5 +noise Gaussian " : "") +
                             "-depth 8 ppm:" + ppm;
    const std::string encode =
        std::string("cjpeg -quality 85 -sample ") + sampling + " -outfile " + jpg + " " + ppm;
    if (std::system(draw.c_str()) != 0 || std::system(encode.c_str()) != 0) {
        std::fprintf(stderr, "PhotoDecodeBench: could not make %s (ImageMagick and cjpeg are needed)\n",
                     key.c_str());
        std::exit(1);
    }
    std::ifstream in(jpg, std::ios::binary);
    auto& bytes = cache[key];
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    std::filesystem::remove(ppm);
    std::filesystem::remove(jpg);
    return bytes;
}

const char* Sampling(std::int64_t code)
{
    return code == 420 ? "2x2,1x1,1x1" : "1x1,1x1,1x1";
}

void SetRate(benchmark::State& state, int width, int height)
{
    state.counters["MP/s"] = benchmark::Counter(static_cast<double>(width) * height / 1e6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

void Ours(benchmark::State& state, codec::IdctPath path)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto& bytes = PhotoBytes(w, h, Sampling(state.range(2)), state.range(3) != 0);
    for (auto _ : state) {
        codec::Photo photo;
        if (codec::DecodePhoto(photo, bytes, {.idct = path}) != 1) {
            state.SkipWithError("decode failed");
            break;
        }
        benchmark::DoNotOptimize(photo.Bitmap()->Pixels().data());
    }
    SetRate(state, w, h);
}

void BM_OursFast(benchmark::State& state)
{
    Ours(state, codec::IdctPath::Fast);
}

void BM_OursPortable(benchmark::State& state)
{
    Ours(state, codec::IdctPath::Portable);
}

void BM_LibjpegTurbo(benchmark::State& state)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto& bytes = PhotoBytes(w, h, Sampling(state.range(2)), state.range(3) != 0);
    std::vector<std::uint8_t> out;
    for (auto _ : state) {
        if (!testing::DecodeWithLibjpegInto(bytes, out)) {
            state.SkipWithError("libjpeg-turbo failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    SetRate(state, w, h);
}

void Sizes(benchmark::internal::Benchmark* b)
{
    b->ArgNames({"w", "h", "sampling", "detail"});
    for (int sampling : {420, 444}) {
        b->Args({800, 600, sampling, 0});
        b->Args({1600, 1200, sampling, 0});
        b->Args({1600, 1200, sampling, 1});
    }
    b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_OursFast)->Apply(Sizes);
BENCHMARK(BM_OursPortable)->Apply(Sizes);
BENCHMARK(BM_LibjpegTurbo)->Apply(Sizes);

} // namespace

BENCHMARK_MAIN();
