#include "platform/Sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace lumenar::platform {
namespace {

TEST(AutoResetEvent, EachSetLetsExactlyOneWaitThrough)
{
    struct Row
    {
        const char* name;
        int sets;
        bool expected[3]; // Results of three polls in a row: the first waits 20 ms, the others not at all.
    };
    const Row rows[] = {
        {"never set", 0, {false, false, false}},
        {"set once", 1, {true, false, false}},
        {"sets do not count up", 3, {true, false, false}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        AutoResetEvent event;
        for (int i = 0; i < row.sets; ++i)
            event.Set();
        for (int poll = 0; poll < 3; ++poll)
            EXPECT_EQ(event.Wait(poll == 0 ? 20 : 0), row.expected[poll]) << poll;
    }
}

TEST(AutoResetEvent, SetFromAnotherThreadWakesTheWaiter)
{
    AutoResetEvent ping;
    AutoResetEvent pong;
    std::thread partner([&] {
        if (ping.Wait(kWaitForever))
            pong.Set();
    });
    ping.Set();
    EXPECT_TRUE(pong.Wait(5000));
    partner.join();
    EXPECT_FALSE(ping.Wait(0)) << "the waiter consumed the signal";
}

TEST(Gate, PassBlocksWhileClosedAndClosesNest)
{
    Gate gate;
    gate.Pass(); // Open: returns at once.
    gate.Suspend();
    gate.Suspend();
    AutoResetEvent passed;
    std::thread worker([&] {
        gate.Pass();
        passed.Set();
    });
    EXPECT_FALSE(passed.Wait(100));
    gate.Resume();
    EXPECT_TRUE(gate.Closed());
    EXPECT_FALSE(passed.Wait(100)) << "two closes need two opens";
    gate.Resume();
    EXPECT_TRUE(passed.Wait(5000));
    EXPECT_FALSE(gate.Closed());
    worker.join();
}

} // namespace
} // namespace lumenar::platform
