// The film receiver handing a streamed film's items to a real player window on the headless host.
#include "playback/ItemHandOverOf.h"

#include "film/ChunkQueue.h"
#include "platform/Clock.h"
#include "platform/Timer.h"
#include "tests/support/FilmStream.h"

#include <gtest/gtest.h>

#include <thread>

namespace lumenar::playback {
namespace {

TEST(ItemHandOverOf, StreamedFilmPlaysToItsEndThroughTheRealPlayer)
{
    const std::vector<std::uint8_t> stream = testing::MakeFilmStream(3, film::kAdvanceAutomatic);

    auto host = platform::WindowHost::Create(800, 600, "test", true);
    int stops = 0;
    const platform::WindowId control =
        host->CreateChild(0, {0, 0, 800, 600}, [&stops](const platform::Message& m) {
            if (m.code == platform::kMsgCommand && m.wParam == kCommandStop)
                ++stops;
        });
    film::Film played;
    PlayerWindow player;
    ASSERT_EQ(player.Create(*host, control, &played, 1, true), 1);
    const film::ItemHandOver handOver = ItemHandOverOf(player, *host);
    EXPECT_EQ(std::tie(handOver.clientWidth, handOver.clientHeight), std::make_tuple(800, 600));

    platform::ManualClock clock;
    platform::ManualTimers timers(clock);
    film::FilmReceiver receiver(nullptr, timers);
    film::ChunkQueue queue;
    film::OpeningFlags flags;
    EXPECT_EQ(film::RunFilmLoader(receiver, queue, played, &handOver, flags), 0)
        << "not running: returns at once";
    flags.openerRunning = 1;
    std::jthread loader([&] { film::RunFilmLoader(receiver, queue, played, &handOver, flags); });
    for (std::size_t at = 0; at < stream.size(); at += 4096) {
        std::lock_guard guard(queue.Lock());
        queue.Push(std::span(stream).subspan(at, std::min<std::size_t>(4096, stream.size() - at)));
    }
    const std::uint64_t start = platform::SystemClock().NowMs();
    while (stops == 0 && platform::SystemClock().NowMs() - start < 20000)
        host->Pump(10);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(player.StepsDone(), 3);
    flags.stopRequested = 1;
    flags.openerRunning = 0;
    loader.join();
    EXPECT_EQ(receiver.State(), film::kFinished);
    std::lock_guard guard(queue.Lock());
    EXPECT_EQ(queue.Peek(), nullptr) << "every queued chunk was fed";
    player.Destroy();
}

} // namespace
} // namespace lumenar::playback
