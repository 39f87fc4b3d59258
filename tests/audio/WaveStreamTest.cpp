#include "audio/WaveStream.h"

#include "audio/NarrationDecoder.h"
#include "audio/WaveFile.h"
#include "platform/MessageBox.h"
#include "tests/support/MessageCapture.h"
#include "tests/support/NarrationWriter.h"
#include "tests/support/TestBytes.h"
#include "tests/support/WriteFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace lumenar::audio {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

using testing::Pattern;
using testing::WaveLayout;

// A wave file with an odd-sized chunk before its format and data, which a reader must step over.
Bytes MakeWave(const platform::WaveFormat& format, const Bytes& data,
               WaveLayout layout = WaveLayout::ListFirst)
{
    return testing::WaveFile(data, format, layout);
}

// The slowest format the output plays, 8000 bytes per second, one byte per frame: a ring of 1.2 MB.
constexpr platform::WaveFormat kSlow{1, 1, 8000, 8000, 1, 8};
constexpr std::size_t kSlowRing = 150 * 8000;
constexpr platform::WaveFormat kNarration{};

class WaveStreamTest : public ::testing::Test
{
protected:
    WaveStreamTest()
    {
        std::random_device random;
        folder_ = fs::temp_directory_path() / ("lumenar-wave-" + std::to_string(random()));
        fs::create_directories(folder_);
    }
    ~WaveStreamTest() override { fs::remove_all(folder_); }

    std::unique_ptr<WaveStream> MakeStream(platform::SoundDevice* device)
    {
        return std::make_unique<WaveStream>(device, timers_, folder_.string());
    }
    bool FolderEmpty() const { return fs::is_empty(folder_); }

    platform::ManualClock clock_;
    platform::ManualTimers timers_{clock_};
    platform::NullSoundDevice device_{clock_};
    fs::path folder_;
};

TEST_F(WaveStreamTest, AppendsWrapRoundTheRing)
{
    struct Row
    {
        const char* name;
        std::vector<std::size_t> chunks;
        std::uint32_t writePos;
        bool wrapped;
    };
    const Row rows[] = {
        {"inside the ring", {400000, 320000}, 720000, false},
        {"ends exactly at the end", {kSlowRing / 2, kSlowRing / 2}, 0, true},
        {"wraps into the start", {800000, 560000}, 160000, true},
        {"larger than the ring is dropped", {400000, kSlowRing + 1}, 400000, false},
        {"data chunk before fmt", {}, 0, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        platform::NullSoundDevice device(clock_);
        auto stream = MakeStream(&device);
        if (row.chunks.empty()) {
            stream->AppendWaveData(MakeWave(kNarration, Pattern(4000, 1), WaveLayout::ListDataFormat));
            EXPECT_EQ(stream->WritePos(), 4000u);
            continue;
        }
        for (std::size_t size : row.chunks)
            stream->AppendWaveData(MakeWave(kSlow, Pattern(size, 3)));
        EXPECT_EQ(stream->BufferBytes(), kSlowRing);
        EXPECT_EQ(stream->WritePos(), row.writePos);
        EXPECT_EQ(stream->WriteWrapped(), row.wrapped);
        EXPECT_TRUE(FolderEmpty());
    }
}

TEST_F(WaveStreamTest, WatcherStopsWhenTheCursorPassesTheDataAndResumesWithTheNextChunk)
{
    auto stream = MakeStream(&device_);
    const Bytes first = Pattern(7680, 10);
    const Bytes second = Pattern(3200, 99);
    stream->AppendWaveData(MakeWave(kNarration, first));
    stream->StartPlayback();
    // The cursor passes writePos (7680 bytes = 480 ms) just after 480 ms; watch in 10 ms steps.
    std::uint64_t stoppedAt = 0;
    for (std::uint64_t t = 10; t <= 2000; t += 10) {
        timers_.Advance(10);
        if (!stream->IsPlaying()) {
            stoppedAt = t;
            break;
        }
    }
    ASSERT_GT(stoppedAt, 480u);
    EXPECT_LE(stoppedAt, 480u + WaveStream::kWatchPeriodMs);
    const Bytes played = device_.Played();
    ASSERT_GE(played.size(), first.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), played.begin()));

    // The next chunk continues from the first byte after the first one.
    stream->AppendWaveData(MakeWave(kNarration, second));
    EXPECT_EQ(stream->PreviousWritePos(), 7680u);
    stream->StartPlayback();
    timers_.Advance(1000);
    const Bytes after = device_.Played();
    ASSERT_GE(after.size(), played.size() + second.size());
    EXPECT_TRUE(
        std::equal(second.begin(), second.end(), after.begin() + static_cast<std::ptrdiff_t>(played.size())));
    const auto wave = (folder_ / "played.wav").string();
    ASSERT_TRUE(device_.WritePlayedWave(wave).ok());
    auto chunks = FindWaveChunks(testing::ReadFile(wave));
    ASSERT_TRUE(chunks.ok());
    EXPECT_EQ(chunks->data.size(), after.size());
}

TEST_F(WaveStreamTest, CursorWrapClearsWriteWrapped)
{
    auto stream = MakeStream(&device_);
    stream->AppendWaveData(MakeWave(kSlow, Pattern(kSlowRing * 2 / 3, 1)));
    stream->AppendWaveData(MakeWave(kSlow, Pattern(kSlowRing / 3, 2)));
    ASSERT_TRUE(stream->WriteWrapped());
    stream->StartPlayback();
    timers_.Advance(149'000);
    EXPECT_FALSE(stream->PlayWrapped());
    EXPECT_TRUE(stream->IsPlaying());
    EXPECT_EQ(device_.Played().size(), 149u * 8000);
    // The cursor wraps at 150 s: the watcher sees it, and with writePos at 0 stops at once.
    timers_.Advance(2000);
    EXPECT_TRUE(stream->PlayWrapped());
    EXPECT_FALSE(stream->WriteWrapped());
    EXPECT_FALSE(stream->IsPlaying());
    EXPECT_LE(device_.Played().size(), kSlowRing + WaveStream::kWatchPeriodMs * 8);
}

TEST_F(WaveStreamTest, FailuresDropChunksCleanly)
{
    {
        SCOPED_TRACE("no sound device");
        auto stream = MakeStream(nullptr);
        EXPECT_EQ(stream->AppendCompressed(testing::Packet({3}, testing::SpeechFrame63(1))), 1);
        EXPECT_FALSE(stream->HasBuffer());
        stream->StartPlayback();
        timers_.Advance(600);
        EXPECT_TRUE(FolderEmpty());
    }
    {
        SCOPED_TRACE("creation refused, then made by the next chunk");
        platform::NullSoundDevice device(clock_);
        auto stream = MakeStream(&device);
        device.FailNextCreate();
        stream->AppendWaveData(MakeWave(kSlow, Pattern(100, 1)));
        EXPECT_FALSE(stream->HasBuffer());
        stream->AppendWaveData(MakeWave(kSlow, Pattern(100, 1)));
        EXPECT_TRUE(stream->HasBuffer());
        EXPECT_EQ(stream->WritePos(), 100u);
    }
    {
        SCOPED_TRACE("lost buffer: the chunk is dropped, the next one written");
        platform::NullSoundDevice device(clock_);
        auto stream = MakeStream(&device);
        stream->AppendWaveData(MakeWave(kSlow, Pattern(100, 1)));
        device.LoseBufferOnNextLock();
        stream->AppendWaveData(MakeWave(kSlow, Pattern(200, 2)));
        EXPECT_EQ(stream->WritePos(), 100u);
        stream->AppendWaveData(MakeWave(kSlow, Pattern(300, 3)));
        EXPECT_EQ(stream->WritePos(), 400u);
    }
    {
        SCOPED_TRACE("not a wave file");
        platform::NullSoundDevice device(clock_);
        auto stream = MakeStream(&device);
        stream->AppendWaveData(Bytes{'R', 'I', 'F', 'X', 0, 0, 0, 0});
        EXPECT_FALSE(stream->HasBuffer());
        EXPECT_EQ(device.BuffersCreated(), 0);
    }
}

TEST_F(WaveStreamTest, ReportsEachRefusedOrDamagedNarrationOnceNamingTheItem)
{
    using testing::Packet;
    using testing::SpeechFrame53;
    using testing::SpeechFrame63;
    const platform::WaveFormat oneHertz{1, 1, 1, 2, 2, 16};
    const platform::WaveFormat hugeByteRate{1, 1, 8000, 0xFFFFFFFF, 2, 16};
    // Sixteen 5.3 kbit/s frames under the 6.3 kbit/s kind, then two packets without frames.
    Bytes mismatched;
    for (std::uint32_t i = 0; i < 16; ++i) {
        Bytes frame = SpeechFrame53(i);
        frame.resize(24, 0);
        testing::Append(mismatched, frame);
    }
    Bytes damaged = Packet({3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, mismatched);
    testing::Append(damaged, Bytes(16, 0));
    struct Row
    {
        const char* name;
        std::function<void(WaveStream&)> append;
        std::uint32_t writePos; // Of the buffer after the appends; 0 without one.
        std::string message;    // The one message shown ("" for none).
    };
    const Row rows[] = {
        {"1 Hz wave",
         [&](WaveStream& s) { s.AppendWaveData(MakeWave(oneHertz, Pattern(100, 1)), "item 3 1hz.wav"); }, 0,
         "Warning|item 3 1hz.wav: not played: sample rate 1 Hz"},
        {"byte rate of 4 GB/s",
         [&](WaveStream& s) { s.AppendWaveData(MakeWave(hugeByteRate, Pattern(100, 1)), "item 1 x.wav"); }, 0,
         "Warning|item 1 x.wav: not played: byte rate 4294967295"},
        {"refused wave, then the film plays on with the next narration",
         [&](WaveStream& s) {
             s.AppendWaveData(MakeWave(oneHertz, Pattern(100, 1)), "item 1 a.wav");
             s.AppendWaveData(MakeWave(kNarration, Pattern(4000, 2)), "item 2 b.wav");
         },
         4000, "Warning|item 1 a.wav: not played: sample rate 1 Hz"},
        {"refused wave after the buffer was made",
         [&](WaveStream& s) {
             s.AppendWaveData(MakeWave(kNarration, Pattern(4000, 2)), "item 1 a.wav");
             s.AppendWaveData(MakeWave(hugeByteRate, Pattern(100, 1)), "item 2 b.wav");
         },
         4000, "Warning|item 2 b.wav: not played: byte rate 4294967295"},
        {"damaged narration: one message with the counts",
         [&](WaveStream& s) { s.AppendCompressed(damaged, "item 4 n.ca"); }, 7680,
         "|Decode size unmatch\nitem 4 n.ca: 16 frames of the wrong size, 2 packets without frames skipped"},
        {"whole narration",
         [&](WaveStream& s) { s.AppendCompressed(Packet({3}, SpeechFrame63(1)), "item 1"); }, 7680, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        testing::MessageCapture capture;
        platform::NullSoundDevice device(clock_);
        auto stream = MakeStream(&device);
        row.append(*stream);
        EXPECT_EQ(stream->HasBuffer(), row.writePos != 0);
        EXPECT_EQ(stream->BufferBytes(), row.writePos != 0 ? 150u * 16000 : 0u) << "150 s of narration";
        EXPECT_EQ(stream->WritePos(), row.writePos);
        const auto lines = capture.Lines();
        if (row.message.empty()) {
            EXPECT_TRUE(lines.empty());
        } else {
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_EQ(lines[0].rfind(row.message, 0), 0u) << lines[0];
        }
        EXPECT_TRUE(FolderEmpty());
    }
}

TEST(WaveFile, FindsChunksInAnyOrderAndRefusesBrokenFiles)
{
    const Bytes good = MakeWave(kNarration, Pattern(10, 0));
    struct Row
    {
        const char* name;
        Bytes file;
        bool ok;
    };
    Bytes shortFormat = good;
    shortFormat[12 + 12 + 4] = 12; // "fmt " chunk of 12 bytes.
    Bytes riffTooShort = good;
    riffTooShort[4] = 20; // The RIFF length ends before the data chunk.
    const Row rows[] = {
        {"fmt then data", good, true},
        {"data then fmt", MakeWave(kNarration, Pattern(11, 0), WaveLayout::ListDataFormat), true},
        {"no RIFF", Bytes(good.begin() + 1, good.end()), false},
        {"short fmt chunk", shortFormat, false},
        {"RIFF length ends early", riffTooShort, false},
        {"cut inside the chunks", Bytes(good.begin(), good.begin() + 30), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto chunks = FindWaveChunks(row.file);
        EXPECT_EQ(chunks.ok(), row.ok);
        if (chunks.ok()) {
            EXPECT_EQ(chunks->format.avgBytesPerSec, 16000u);
            EXPECT_GE(chunks->data.size(), 10u);
        }
    }
    for (std::size_t length = 0; length < good.size(); ++length)
        (void)FindWaveChunks(std::span(good).first(length)); // Never reads past the bytes.
}

} // namespace
} // namespace lumenar::audio
