#include "platform/Timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <vector>

namespace lumenar::platform {
namespace {

TEST(SystemTimers, TicksRepeatedlyOnItsOwnThreadUntilDestroyed)
{
    std::latch threeTicks(3);
    std::atomic<int> ticks{0};
    auto timer = SystemTimers().StartPeriodic(1, 1, [&] {
        if (ticks.fetch_add(1) < 3)
            threeTicks.count_down();
    });
    threeTicks.wait();
    timer.reset(); // Joins: no tick runs after this.
    const int seen = ticks.load();
    EXPECT_GE(seen, 3);
    EXPECT_EQ(ticks.load(), seen);
}

TEST(ManualTimers, TicksInTimeOrderWithTheClockAtEachDueTime)
{
    ManualClock clock;
    ManualTimers timers(clock);
    std::vector<std::pair<char, std::uint64_t>> log;
    auto a = timers.StartPeriodic(300, 10, [&] { log.emplace_back('a', clock.NowMs()); });
    auto b = timers.StartPeriodic(250, 10, [&] { log.emplace_back('b', clock.NowMs()); });
    timers.Advance(700);
    b.reset();
    timers.Advance(300);
    const std::vector<std::pair<char, std::uint64_t>> expected = {
        {'b', 250}, {'a', 300}, {'b', 500}, {'a', 600}, {'a', 900}};
    EXPECT_EQ(log, expected);
    EXPECT_EQ(clock.NowMs(), 1000u);
}

} // namespace
} // namespace lumenar::platform
