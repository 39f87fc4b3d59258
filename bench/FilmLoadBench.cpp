// Opening film files of 1,000 and 8,000 items, next to reading the same file's bytes once: opening must
// grow with the number of items, not with its square or cube. Films are written once per size, in
// memory, by the product's own film writer, then opened from a temporary file as the receiver does.
#include "film/Film.h"
#include "film/FilmStreamWriter.h"
#include "film/FilmWriter.h"
#include "platform/FileSystem.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>

namespace {

using namespace lumenar;

// One film file per item count, written on first use and removed when the program ends.
class FilmFiles
{
public:
    ~FilmFiles()
    {
        for (const auto& [count, path] : paths_)
            std::remove(path.c_str());
    }
    const std::string& Path(int items)
    {
        auto found = paths_.find(items);
        if (found != paths_.end())
            return found->second;
        film::Film film;
        for (int i = 1; i <= items; ++i) {
            film::FilmItem item;
            item.kind = film::kFilmItemPhoto;
            item.photo.cstrName = film::SizedName(1000 + i, "photo.jpg");
            item.displaySeconds = 3;
            film.AddItem(item);
            if (i % 4 == 0)
                film.AddText(i, film::FilmText{});
        }
        const std::string path = "/tmp/lumenar-film-load-bench-" + std::to_string(items) + ".flm";
        (void)platform::WriteWholeFile(path, film::WriteFilmFile(film).value());
        return paths_.emplace(items, path).first->second;
    }

private:
    std::map<int, std::string> paths_;
};

FilmFiles& Files()
{
    static FilmFiles files;
    return files;
}

void BM_LoadFilmFile(benchmark::State& state)
{
    const std::string& path = Files().Path(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        film::Film film;
        if (film.Load(path) != 1 || film.ItemCount() != state.range(0))
            state.SkipWithError("the film did not load whole");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LoadFilmFile)->Arg(1000)->Arg(8000)->Unit(benchmark::kMillisecond)->MinTime(0.5);

// The peer: reading the same file's bytes once.
void BM_ReadFileBytes(benchmark::State& state)
{
    const std::string& path = Files().Path(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::ifstream in(path, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        benchmark::DoNotOptimize(bytes.data());
    }
}
BENCHMARK(BM_ReadFileBytes)->Arg(1000)->Arg(8000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
