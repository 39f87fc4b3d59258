// A measured run of a 20-item film on the headless window host (or in a real window with --window):
// how late each step starts against its due time, the processor time used while items dwell, and the
// resident memory after item 2 and after the last item.
#include "codec/Photo.h"
#include "platform/InMemoryPictures.h"
#include "playback/PlayerWindow.h"
#include "tests/support/JpegWriter.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace lumenar;

double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long ResidentKiB()
{
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

std::uint32_t Now()
{
    return static_cast<std::uint32_t>(platform::SystemClock().NowMs());
}

} // namespace

int main(int argc, char** argv)
{
    int itemCount = 20;
    int seconds = 2;
    bool window = false;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--items") && i + 1 < argc)
            itemCount = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc)
            seconds = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--window"))
            window = true;
        else {
            std::fprintf(stderr, "usage: PlaybackRun [--items N] [--seconds S] [--window]\n");
            return 2;
        }
    }
    film::Film film;
    film.SetAdvanceMode(film::kAdvanceAutomatic);
    for (int i = 0; i < itemCount; ++i) {
        testing::ZigzagBlock block(64, 0);
        block[0] = -900 + (i * 1800) / std::max(itemCount - 1, 1);
        block[1] = 60;
        block[2] = -40;
        auto name = platform::RegisterInMemoryPicture(testing::MakeUniformPhoto(1600, 1200, block));
        film::FilmItem item;
        item.kind = film::kFilmItemPhoto;
        item.photo = {std::to_string(name.length), std::to_string(name.address)};
        item.mask = {"", "0"};
        item.displaySeconds = seconds;
        item.effectMs = 600;
        item.effect = i % 37;
        std::int32_t number = film.AddItem(item);
        if (i % 3 == 0) {
            film::FilmText caption;
            caption.effect = i % 2 == 0 ? 19 : 4;
            caption.text = "Item " + std::to_string(number);
            caption.style = film.CaptionStyle();
            caption.style.x = 60;
            caption.style.y = 480;
            film.AddText(number, caption);
        }
    }

    auto host = platform::WindowHost::Create(800, 600, "Lumenar playback run", !window);
    platform::WindowId control = host->CreateChild(0, {0, 0, 800, 600}, nullptr);
    playback::PlayerWindow player;
    std::uint32_t created = Now();
    if (player.Create(*host, control, &film, 1, true) != 1) {
        std::fprintf(stderr, "PlaybackRun: the player window could not be made\n");
        return 1;
    }
    std::atomic<bool> openerRunning{true};
    std::thread opener([&] {
        playback::PlaybackState& state = player.State();
        for (int i = 0; i < itemCount && openerRunning; ++i) {
            state.itemAvailable.Set();
            while (openerRunning && !state.stepDone.Wait(0))
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });

    long rssAfter2 = 0;
    std::vector<long> rss;
    double dwellCpu = 0, dwellWall = 0;
    int measured = 0;
    int lastDone = 0;
    std::uint32_t doneAt = 0;
    bool sampled = true;
    while (player.StepsDone() < itemCount && host->Pump(100)) {
        int done = player.StepsDone();
        if (done != lastDone) {
            lastDone = done;
            doneAt = Now();
            sampled = false;
            rss.push_back(ResidentKiB());
            if (done == 2)
                rssAfter2 = rss.back();
        }
        // A quiet stretch of the dwell: the next photo has been decoded (within a few hundred ms of the
        // step's end) and the next step is still more than a second away.
        if (!sampled && done >= 1 && seconds >= 2 && Now() - doneAt > 600) {
            sampled = true;
            double c0 = CpuSeconds();
            std::uint32_t w0 = Now();
            while (Now() - w0 < 1000)
                host->Pump(100);
            dwellCpu += CpuSeconds() - c0;
            dwellWall += (Now() - w0) / 1000.0;
            ++measured;
        }
    }
    std::uint32_t end = Now() + static_cast<std::uint32_t>(seconds) * 1000 + 800;
    while (Now() < end && host->Pump(100)) {
    }
    long rssAfterLast = ResidentKiB();
    auto starts = player.StepStartTimes();
    player.Destroy();
    openerRunning = false;
    opener.join();

    std::printf("items %d, %d s each, 600 ms transitions, %s host\n", itemCount, seconds,
                host->IsHeadless() ? "headless" : "SDL");
    std::uint32_t maxLate = 0;
    double sumLate = 0;
    for (std::size_t i = 0; i < starts.size() && i < std::size_t(itemCount); ++i) {
        std::uint32_t due =
            i == 0 ? created + 500 : starts[i - 1] + seconds * 1000 + 600 + ((i - 1) % 3 == 0 ? 3000 : 0);
        std::uint32_t late = starts[i] > due ? starts[i] - due : 0;
        maxLate = std::max(maxLate, late);
        sumLate += late;
    }
    std::printf("step lateness: mean %.1f ms, max %u ms over %zu steps\n",
                sumLate / std::max<std::size_t>(starts.size(), 1), maxLate, starts.size());
    std::printf("dwell CPU: %.3f%% of one core over %.1f s of quiet dwell (%d samples)\n",
                dwellWall > 0 ? 100.0 * dwellCpu / dwellWall : 0.0, dwellWall, measured);
    std::printf("resident memory: %ld KiB after item 2, %ld KiB after item %d\n", rssAfter2, rssAfterLast,
                itemCount);
    std::printf("resident memory after each step (KiB):");
    for (long kib : rss)
        std::printf(" %ld", kib);
    std::printf("\n");
    return 0;
}
