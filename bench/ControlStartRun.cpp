// A measured start of the control on a film served over loopback HTTP at a fixed rate, headless:
// from the first byte to the first item on screen, from the end of item 1's bytes to that moment, the
// peak resident memory, and the processor time per second while items dwell. The peer is the bare
// download of the same stream at the same rate (no unpacking, no playback), timed to item 1's end.
//   ControlStartRun [--items N] [--rate BYTES_PER_S] [--padding BYTES_PER_ITEM]
#include "control/SequenceCtl.h"
#include "platform/Clock.h"
#include "platform/Download.h"
#include "playback/PlayerWindow.h"
#include "tests/support/FilmServer.h"
#include "tests/support/FilmStream.h"
#include "tests/support/FilmWriter.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

using namespace lumenar;

double NowMs()
{
    return static_cast<double>(platform::SystemClock().NowMs());
}

double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long PeakResidentKiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    int items = 30;
    long rate = 500 * 1024;
    long padding = 40000;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--items") && i + 1 < argc)
            items = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--rate") && i + 1 < argc)
            rate = std::max(1L, std::atol(argv[++i]));
        else if (!std::strcmp(argv[i], "--padding") && i + 1 < argc)
            padding = std::max(0L, std::atol(argv[++i]));
        else {
            std::fprintf(stderr,
                         "usage: ControlStartRun [--items N] [--rate BYTES_PER_S] [--padding BYTES]\n");
            return 2;
        }
    }
    const auto stream = testing::MakeFilmStream(items, film::kAdvanceAutomatic, std::size_t(padding));
    const std::string path = testing::TempPath("start-run.film");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(stream.data()), std::streamsize(stream.size()));
    testing::FilmServer server(path, {.throttle = rate});
    if (server.Address().empty()) {
        std::fprintf(stderr, "ControlStartRun: the loopback server did not start\n");
        return 1;
    }

    auto host = platform::WindowHost::Create(800, 600, "ControlStartRun", true);
    control::SequenceCtl control;
    control.SetFile(server.Address());
    control::ControlSite site;
    site.host = host.get();
    if (control.Create(site) != 0)
        return 1;
    double firstByte = 0, itemBytes = 0, onScreen = 0, stepDone = 0, end = 0;
    double dwellCpu = 0, dwellWall = 0;
    std::int64_t expectedFirst = 0;
    const double start = NowMs();
    while (control.State() != control::ControlState::Stopped && NowMs() - start < 600000) {
        const double cpuBefore = CpuSeconds(), wallBefore = NowMs();
        const bool wasDwelling = onScreen > 0 && itemBytes > 0 && !control.Downloading();
        host->Pump(10);
        const double now = NowMs();
        if (firstByte == 0 && control.BytesQueued() > 0)
            firstByte = now;
        film::FilmReceiver* receiver = control.Receiver();
        if (itemBytes == 0 && receiver && receiver->ExpectedFirst() > 0 &&
            std::int64_t(control.BytesQueued()) >= receiver->ExpectedFirst()) {
            itemBytes = now;
            expectedFirst = receiver->ExpectedFirst();
        }
        if (onScreen == 0 && control.Player() && control.Player()->CurrentNumber() >= 1)
            onScreen = now;
        if (stepDone == 0 && control.Player() && control.Player()->StepsDone() >= 1)
            stepDone = now;
        if (end == 0 && control.DownloadsStarted() > 0 && !control.Downloading())
            end = now;
        if (wasDwelling) {
            dwellCpu += CpuSeconds() - cpuBefore;
            dwellWall += (now - wallBefore) / 1000.0;
        }
    }
    const long peak = PeakResidentKiB();
    control.Destroy();

    // The peer: the same stream, downloaded bare, from its first byte until item 1's bytes are in.
    double peerFirst = 0, peerItem = 0;
    {
        auto download = platform::Download::Start(server.Address(), {});
        std::uint64_t received = 0;
        const double peerStart = NowMs();
        while (download.ok() && peerItem == 0 && NowMs() - peerStart < 600000) {
            for (const platform::DownloadBlock& block : (*download)->TakeBlocks()) {
                if (peerFirst == 0 && !block.bytes.empty())
                    peerFirst = NowMs();
                received += block.bytes.size();
            }
            if (expectedFirst > 0 && received >= std::uint64_t(expectedFirst))
                peerItem = NowMs();
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    std::printf("film: %d items, %zu bytes, served at %ld bytes/s\n", items, stream.size(), rate);
    std::printf("first byte -> first item on screen (transition starts): %.0f ms\n", onScreen - firstByte);
    std::printf("first byte -> first transition done:                     %.0f ms\n", stepDone - firstByte);
    std::printf("item 1's last byte -> first item on screen:              %.0f ms\n", onScreen - itemBytes);
    std::printf("first byte -> download end:                              %.0f ms\n", end - firstByte);
    std::printf("peer (bare download) first byte -> item 1's last byte:   %.0f ms; control: %.0f ms\n",
                peerItem - peerFirst, itemBytes - firstByte);
    std::printf("peak resident memory: %ld KiB\n", peak);
    std::printf("processor while dwelling after the download: %.1f %% of one core over %.1f s\n",
                dwellWall > 0 ? 100.0 * dwellCpu / dwellWall : 0.0, dwellWall);
    std::remove(path.c_str());
    return 0;
}
