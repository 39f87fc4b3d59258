#include "app/FrameTimeline.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lumenar::app {
namespace {

// Shots written as "ms+duration" with a trailing "r" for a repeat, so a row reads like a timeline.
std::string Describe(const std::vector<Shot>& shots)
{
    std::string out;
    for (const Shot& shot : shots)
        out += std::to_string(shot.ms) + "+" + std::to_string(shot.durationMs) + (shot.repeat ? "r " : " ");
    return out;
}

TEST(FrameTimeline, TurnsPresentedPicturesIntoFrames)
{
    struct Row
    {
        const char* name;
        int fps;
        std::uint64_t from, to;
        std::vector<std::uint64_t> presents; // Clock times of the pictures, in order.
        std::uint64_t end;                   // When the film ended.
        const char* shots;                   // All shots, in order.
        std::uint64_t endMs;
    };
    const Row rows[] = {
        // The player's pace: each picture lasts until the next, the last until the end.
        {"variable", 0, 0, 0, {0, 500, 555, 610}, 2000, "0+500 500+55 555+55 610+1390 ", 2000},
        // A picture presented twice at one instant (a paint after a present) is one frame.
        {"same instant", 0, 0, 0, {0, 500, 500, 555}, 600, "0+500 500+55 555+45 ", 600},
        // A dwell of a second at 10 fps is one picture and nine repeats, not ten conversions.
        {"constant dwell",
         10,
         0,
         0,
         {0, 1000},
         1200,
         "0+100 100+100r 200+100r 300+100r 400+100r 500+100r "
         "600+100r 700+100r 800+100r 900+100r 1000+100 1100+100r ",
         1200},
        // Pictures shorter than a frame: only those on screen at a frame's instant are kept.
        {"constant skips", 10, 0, 0, {0, 30, 60, 90, 120}, 200, "0+100 100+100 ", 200},
        // 30 fps does not divide a second in whole milliseconds: frame times never drift.
        {"thirds", 30, 0, 0, {0}, 100, "0+33 33+33r 66+34r ", 100},
        // A range keeps what is on screen within it, shifted to start at 0.
        {"range variable", 0, 1000, 1500, {0, 800, 1200, 1700}, 2000, "0+200 200+300 ", 500},
        {"range constant", 10, 1000, 1300, {0, 1150}, 2000, "0+100 100+100r 200+100 ", 300},
        {"range after the end", 0, 5000, 6000, {0, 100}, 1000, "", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FrameTimeline timeline(row.fps, row.from, row.to);
        std::vector<Shot> all;
        for (std::uint64_t ms : row.presents)
            for (const Shot& shot : timeline.Present(ms))
                all.push_back(shot);
        for (const Shot& shot : timeline.End(row.end))
            all.push_back(shot);
        EXPECT_EQ(Describe(all), row.shots);
        EXPECT_EQ(timeline.EndMs(), row.endMs);
    }
}

} // namespace
} // namespace lumenar::app
