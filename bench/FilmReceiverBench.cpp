// Unpacking a film stream with the film receiver next to the least any receiver must do: copying the
// same chunks once. Also reports the receiver's largest buffer for films of 5 and 30 items, which must
// not grow with the film (only bytes not consumed yet are held).
#include "film/FilmReceiver.h"
#include "film/FilmStreamWriter.h"

#include <benchmark/benchmark.h>

#include <cstring>

namespace {

using namespace lumenar;

constexpr std::size_t kChunk = 16 * 1024; // A typical download block.
constexpr std::size_t kPhotoBytes = 60 * 1024;

std::vector<std::uint8_t> Stream(int items)
{
    film::Film film;
    std::vector<film::ItemMedia> media;
    for (int i = 0; i < items; ++i) {
        film::FilmItem item;
        item.kind = film::kFilmItemPhoto;
        item.photo.cstrName = film::SizedName(kPhotoBytes, "photo.jpg");
        item.displaySeconds = 5;
        film.AddItem(item);
        film::ItemMedia bytes;
        bytes.photo.assign(kPhotoBytes, static_cast<std::uint8_t>(i));
        media.push_back(std::move(bytes));
    }
    return film::WriteFilmStream(film, media, {}).value();
}

std::int32_t Feed(const std::vector<std::uint8_t>& stream)
{
    platform::ManualClock clock;
    platform::ManualTimers timers(clock);
    film::Film film;
    film::FilmReceiver receiver(nullptr, timers);
    std::atomic<std::int32_t> stop{0};
    std::int32_t peak = 0;
    for (std::size_t at = 0; at < stream.size(); at += kChunk) {
        const auto size = static_cast<std::int32_t>(std::min(kChunk, stream.size() - at));
        receiver.FeedChunk(film, nullptr, stream.data() + at, size, stop);
        peak = std::max(peak, receiver.Capacity());
    }
    return peak;
}

void BM_FeedChunk(benchmark::State& state)
{
    const std::vector<std::uint8_t> stream = Stream(static_cast<int>(state.range(0)));
    std::int32_t peak = 0;
    for (auto _ : state)
        peak = Feed(stream);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.size()));
    state.counters["peak_buffer_bytes"] = peak;
}
BENCHMARK(BM_FeedChunk)->Arg(5)->Arg(30)->Unit(benchmark::kMillisecond);

void BM_CopyChunks(benchmark::State& state)
{
    const std::vector<std::uint8_t> stream = Stream(static_cast<int>(state.range(0)));
    std::vector<std::uint8_t> copy(stream.size());
    for (auto _ : state) {
        for (std::size_t at = 0; at < stream.size(); at += kChunk)
            std::memcpy(copy.data() + at, stream.data() + at, std::min(kChunk, stream.size() - at));
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.size()));
}
BENCHMARK(BM_CopyChunks)->Arg(5)->Arg(30)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
