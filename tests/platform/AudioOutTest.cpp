#include "platform/AudioOut.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace lumenar::platform {
namespace {

// Both devices behave alike for what the wave stream uses: regions, position, status. The SDL device
// runs on SDL's "dummy" audio driver here (set by CTest), so no sound card is needed.
void ExerciseBuffer(SoundDevice& device)
{
    auto buffer = device.CreateBuffer(WaveFormat{}, 1000);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->Size(), 1000u);
    LockedRegions regions;
    ASSERT_EQ(buffer->Lock(900, 300, regions), LockResult::Ok);
    EXPECT_EQ(regions.firstBytes, 100u);
    EXPECT_EQ(regions.secondBytes, 200u);
    ASSERT_NE(regions.second, nullptr);
    std::memset(regions.first, 1, regions.firstBytes);
    std::memset(regions.second, 2, regions.secondBytes);
    buffer->Unlock(regions);
    EXPECT_EQ(buffer->Lock(0, 1001, regions), LockResult::Failed);
    EXPECT_EQ(buffer->Status().value_or(99), 0u);
    buffer->SetPosition(500);
    EXPECT_EQ(buffer->PlayCursor().value_or(0), 500u);
    EXPECT_TRUE(buffer->PlayLooping());
    EXPECT_TRUE(buffer->Status().value_or(0) & kStatusPlaying);
    buffer->Stop();
    EXPECT_FALSE(buffer->Status().value_or(0) & kStatusPlaying);
}

TEST(AudioOut, BothDevicesBufferRegionsPositionAndStatus)
{
    ManualClock clock;
    NullSoundDevice null(clock);
    ExerciseBuffer(null);
    auto sdl = OpenSdlSoundDevice();
    ASSERT_NE(sdl, nullptr) << "SDL's dummy audio driver should always open";
    ExerciseBuffer(*sdl);
}

TEST(AudioOut, DevicesRefuseFormatsTheyCannotPlay)
{
    struct Row
    {
        const char* name;
        WaveFormat format;
        bool playable;
    };
    // Fields: tag, channels, rate, byte rate, block alignment, bits.
    const Row rows[] = {
        {"narration", {1, 1, 8000, 16000, 2, 16}, true},
        {"8-bit mono at the lowest rate", {1, 1, 8000, 8000, 1, 8}, true},
        {"16-bit stereo at the highest rate", {1, 2, 192000, 768000, 4, 16}, true},
        // A rate of 1 Hz made the sound device's period last 17 minutes, and its close waited for it.
        {"1 Hz", {1, 1, 1, 2, 2, 16}, false},
        {"2^32 - 1 Hz", {1, 1, 0xFFFFFFFF, 0xFFFFFFFE, 2, 16}, false},
        {"just under the lowest rate", {1, 1, 7999, 15998, 2, 16}, false},
        {"just over the highest rate", {1, 1, 192001, 384002, 2, 16}, false},
        // The ring is sized from the byte rate: 150 s of this would be 600 GB.
        {"byte rate that disagrees", {1, 1, 8000, 0xFFFFFFFF, 2, 16}, false},
        {"block alignment that disagrees", {1, 2, 8000, 32000, 2, 16}, false},
        {"no channels", {1, 0, 8000, 0, 0, 16}, false},
        {"three channels", {1, 3, 8000, 48000, 6, 16}, false},
        {"24 bits", {1, 1, 8000, 24000, 3, 24}, false},
        {"floating point", {3, 1, 8000, 32000, 4, 32}, false},
    };
    ManualClock clock;
    NullSoundDevice null(clock);
    auto sdl = OpenSdlSoundDevice();
    ASSERT_NE(sdl, nullptr);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(CheckPlayableFormat(row.format).ok(), row.playable);
        EXPECT_EQ(null.CreateBuffer(row.format, 1000) != nullptr, row.playable);
        EXPECT_EQ(sdl->CreateBuffer(row.format, 1000) != nullptr, row.playable);
    }
}

// The record a video's sound track is made from: every byte at the clock time it was played, silence
// where nothing played, in pieces that join without a gap or an overlap however the takes fall.
TEST(AudioOut, TimelinePlacesPlayedSoundAtItsClockTime)
{
    struct Row
    {
        const char* name;
        std::uint64_t startMs;            // When the buffer starts playing.
        std::vector<std::uint64_t> takes; // Clock times at which the record is taken.
        std::uint64_t stopMs;             // When the buffer stops (0: never).
    };
    const Row rows[] = {
        {"from the start, one take", 0, {100}, 0},
        // A narration that starts late: what comes before it is silence, not shifted sound.
        {"late start", 250, {400}, 0},
        {"takes that split blocks of time", 30, {7, 33, 34, 101, 260}, 0},
        // A take before any byte played must not lose the bytes that play later.
        {"take before playing", 120, {50, 300}, 0},
        {"stops between takes", 0, {80, 200}, 120},
    };
    // 8 kHz 16-bit mono: 16 bytes a millisecond. Byte n of the ring holds n & 0xFF, so where a byte
    // came from is known, and the ring is long enough not to wrap.
    const WaveFormat format{1, 1, 8000, 16000, 2, 16};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ManualClock clock;
        NullSoundDevice device(clock);
        auto buffer = device.CreateBuffer(format, 16000);
        ASSERT_NE(buffer, nullptr);
        LockedRegions regions;
        ASSERT_EQ(buffer->Lock(0, 16000, regions), LockResult::Ok);
        for (std::uint32_t i = 0; i < regions.firstBytes; ++i)
            regions.first[i] = static_cast<std::uint8_t>(i);
        buffer->Unlock(regions);

        std::vector<std::uint8_t> record;
        bool started = false, stopped = false;
        for (std::uint64_t take : row.takes) {
            for (std::uint64_t at : {row.startMs, row.stopMs}) {
                const bool isStart = at == row.startMs;
                if ((isStart ? started : stopped) || (!isStart && at == 0) || at > take)
                    continue;
                clock.Set(std::max(clock.NowMs(), at));
                isStart ? (void)buffer->PlayLooping() : buffer->Stop();
                (isStart ? started : stopped) = true;
            }
            clock.Set(take);
            WaveFormat got;
            const std::vector<std::uint8_t> piece = device.TakeTimeline(take, got);
            EXPECT_EQ(got.samplesPerSec, 8000u);
            record.insert(record.end(), piece.begin(), piece.end());
        }
        const std::uint64_t end = row.takes.back();
        ASSERT_EQ(record.size(), end * 16);
        const std::uint64_t playedUntil = row.stopMs != 0 ? row.stopMs : end;
        for (std::uint64_t i = 0; i < record.size(); ++i) {
            const std::uint64_t ms = i / 16;
            const bool playing = ms >= row.startMs && ms < playedUntil;
            const std::uint8_t wanted = playing ? static_cast<std::uint8_t>(i - row.startMs * 16) : 0;
            if (record[i] != wanted) {
                ADD_FAILURE() << "byte " << i << " (" << ms << " ms) is " << int(record[i]) << ", not "
                              << int(wanted);
                break;
            }
        }
    }
}

} // namespace
} // namespace lumenar::platform
