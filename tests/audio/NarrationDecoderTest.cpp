#include "audio/NarrationDecoder.h"

#include "tests/support/MessageCapture.h"
#include "tests/support/NarrationWriter.h"
#include "tests/support/WriteFile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

namespace lumenar::audio {
namespace {

using testing::Append;
using testing::Packet;
using testing::SilenceFrame;
using testing::SpeechFrame53;
using testing::SpeechFrame63;
using Bytes = std::vector<std::uint8_t>;

// Captures the messages the decoder shows and the debug lines it writes.
struct Capture
{
    testing::MessageCapture messages;
    testing::TraceCapture traces;
};

Bytes DecodeToPcm(NarrationDecoder& decoder, const Bytes& chunk)
{
    Bytes pcm;
    decoder.DecodeChunk(chunk, [&pcm](std::span<const std::uint8_t> part) {
        pcm.insert(pcm.end(), part.begin(), part.end());
    });
    return pcm;
}

std::vector<std::int16_t> Samples(const Bytes& pcm, std::size_t from = 0, std::size_t count = SIZE_MAX)
{
    std::vector<std::int16_t> out;
    for (std::size_t i = from; i < pcm.size() / 2 && out.size() < count; ++i)
        out.push_back(static_cast<std::int16_t>(pcm[2 * i] | pcm[2 * i + 1] << 8));
    return out;
}

double Rms(const std::vector<std::int16_t>& samples)
{
    double sum = 0;
    for (auto s : samples)
        sum += double(s) * s;
    return samples.empty() ? 0 : std::sqrt(sum / double(samples.size()));
}

Bytes SixteenSpeechFrames(std::uint32_t seed)
{
    Bytes payload;
    for (std::uint32_t i = 0; i < 16; ++i)
        Append(payload, SpeechFrame63(seed + i));
    return payload;
}

TEST(NarrationDecoder, FrameSizesFollowTheFrameType)
{
    struct Row
    {
        const char* name;
        Bytes frame;
        std::size_t available;
        int expected;
    };
    const Row rows[] = {
        {"6.3 kbit/s", SpeechFrame63(1), 24, 24},
        {"5.3 kbit/s", SpeechFrame53(2), 20, 20},
        {"5.3 kbit/s with room to spare", SpeechFrame53(2), 24, 20},
        {"silence description", SilenceFrame(10, 3), 4, 4},
        {"untransmitted", {0x03}, 1, 1},
        {"6.3 kbit/s one byte short", SpeechFrame63(1), 23, -1},
        {"silence description one byte short", SilenceFrame(10, 3), 3, -1},
        {"nothing", {}, 0, -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        NarrationDecoder decoder;
        std::array<std::int16_t, kFrameSamples> samples;
        samples.fill(1234);
        EXPECT_EQ(decoder.DecodeFrame(0, std::span(row.frame).first(row.available), samples), row.expected);
        if (row.expected < 0) {
            EXPECT_EQ(samples[0], 1234) << "a refused frame leaves the samples alone";
        }
    }
}

TEST(NarrationDecoder, PacketCases)
{
    const Bytes speech = SixteenSpeechFrames(100);
    Bytes mismatched = SpeechFrame53(5);
    mismatched.resize(24, 0xee); // The 5.3 kbit/s frame's four spare bytes under kind 3.
    Append(mismatched, SpeechFrame63(6));
    // 9-byte packets of one untransmitted frame: 7680 bytes of sound each, up to the length limit.
    Bytes tiny;
    for (std::size_t i = 0; i < kMaxNarrationPackets + 5; ++i)
        Append(tiny, Packet({1}, {3}));

    struct Row
    {
        const char* name;
        Bytes chunk;
        std::size_t pcmBytes;
        NarrationReport report; // Packets, size mismatches, empty packets, past the limit, long, truncated.
        int traces;
    };
    const Row rows[] = {
        {"sixteen speech frames",
         Packet({3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, speech),
         7680,
         {1, 0, 0, 0, 0, false},
         0},
        {"5.3 kbit/s frame under kind 3", Packet({3, 3}, mismatched), 7680, {1, 1, 0, 0, 0, false}, 0},
        {"silence frame under kind 3",
         Packet({3},
                [] {
                    auto f = SilenceFrame(5, 1);
                    f.resize(24);
                    return f;
                }()),
         7680,
         {1, 1, 0, 0, 0, false},
         0},
        {"speech frame under kind 2", Packet({2}, SpeechFrame63(3)), 7680, {1, 1, 0, 0, 0, false}, 0},
        {"two packets",
         [] {
             auto c = Packet({3}, SpeechFrame63(1));
             Append(c, Packet({1}, {3}));
             return c;
         }(),
         15360,
         {2, 0, 0, 0, 0, false},
         0},
        {"header cut short", Bytes{0, 0, 24, 0, 3}, 0, {0, 0, 0, 0, 0, true}, 1},
        {"payload cut short",
         [] {
             auto c = Packet({3}, SpeechFrame63(4));
             c.resize(c.size() - 5);
             return c;
         }(),
         7680,
         {1, 0, 0, 0, 0, true},
         1},
        {"payload over 384 bytes",
         [&] {
             auto p = speech;
             p.resize(400, 0x55);
             return Packet({3, 3}, p);
         }(),
         7680,
         {1, 0, 0, 0, 1, false},
         1},
        // 1 MiB of zero bytes once decoded to 1 GB of silence, 480 ms for every 8 bytes.
        {"1 MiB of zero bytes", Bytes(1 << 20, 0), 0, {0, 0, 1 << 17, 0, 0, false}, 0},
        {"packets without frames between speech",
         [] {
             auto c = Packet({3}, SpeechFrame63(1));
             Append(c, Packet({}, {}));
             Append(c, Packet({}, {0x55, 0x55}));
             Append(c, Packet({3}, SpeechFrame63(2)));
             return c;
         }(),
         15360,
         {2, 0, 2, 0, 0, false},
         0},
        {"past the length limit",
         tiny,
         kMaxNarrationPackets * kPacketPcmBytes,
         {kMaxNarrationPackets, 0, 0, 5, 0, false},
         0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Capture capture;
        NarrationDecoder decoder;
        std::size_t pcmBytes = 0;
        const NarrationReport report = decoder.DecodeChunk(
            row.chunk, [&](std::span<const std::uint8_t> pcm) { pcmBytes += pcm.size(); });
        EXPECT_EQ(pcmBytes, row.pcmBytes);
        const auto counts = [](const NarrationReport& r) {
            return std::tie(r.packets, r.sizeMismatches, r.emptyPackets, r.packetsPastLimit, r.longPayloads,
                            r.truncated);
        };
        EXPECT_EQ(counts(report), counts(row.report));
        EXPECT_EQ(report.Damaged(), report.Describe() != "");
        EXPECT_TRUE(capture.messages.All().empty()) << "the caller reports once per narration";
        EXPECT_EQ(capture.traces.Lines().size(), static_cast<std::size_t>(row.traces));
    }
}

TEST(NarrationDecoder, SniffsOnlyWellFormedPackets)
{
    struct Row
    {
        const char* name;
        Bytes data;
        bool narration;
    };
    Bytes wave = {'R', 'I', 'F', 'F', 36, 0, 0, 0, 'W', 'A', 'V', 'E'};
    wave.resize(44, 0);
    const Row rows[] = {
        {"speech packet",
         Packet({3, 2, 1},
                [] {
                    auto p = SpeechFrame63(1);
                    Append(p, SilenceFrame(3, 1));
                    p.push_back(3);
                    return p;
                }()),
         true},
        {"empty wave file", wave, false},
        {"photo", {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0}, false},
        {"one byte", {0x42}, false},
        {"nothing", {}, false},
        {"no frames", Packet({}, {}), false},
        {"payload longer than its frames", Packet({1}, {3, 3}), false},
        {"payload shorter than its frames", Packet({3}, SpeechFrame63(1), 20), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(SniffNarration(row.data), row.narration);
    }
    Bytes cut = Packet({3}, SpeechFrame63(1));
    cut.pop_back();
    EXPECT_FALSE(SniffNarration(cut)) << "a packet cut short";
}

TEST(NarrationDecoder, EmptyFramesRepeatThePreviousFrame)
{
    NarrationDecoder decoder;
    const Bytes pcm = DecodeToPcm(decoder, Packet({3}, SpeechFrame63(42)));
    ASSERT_EQ(pcm.size(), kPacketPcmBytes);
    const Bytes first(pcm.begin(), pcm.begin() + 480);
    EXPECT_GT(Rms(Samples(first)), 0.0);
    for (int i = 1; i < 16; ++i)
        EXPECT_TRUE(std::equal(first.begin(), first.end(), pcm.begin() + 480 * i)) << "copy " << i;
}

TEST(NarrationDecoder, MismatchedFrameDecodesAndTheNextIsRead24BytesOn)
{
    Capture capture;
    Bytes payload = SpeechFrame53(5);
    payload.resize(24, 0xee);
    Append(payload, SpeechFrame63(6));
    NarrationDecoder packed;
    const Bytes pcm = DecodeToPcm(packed, Packet({3, 3}, payload));

    NarrationDecoder direct;
    std::array<std::int16_t, kFrameSamples> frame53, frame63;
    const Bytes f53 = SpeechFrame53(5), f63 = SpeechFrame63(6);
    ASSERT_EQ(direct.DecodeFrame(0, f53, frame53), 20);
    ASSERT_EQ(direct.DecodeFrame(0, f63, frame63), 24);
    EXPECT_EQ(Samples(pcm, 0, 240), std::vector<std::int16_t>(frame53.begin(), frame53.end()));
    EXPECT_EQ(Samples(pcm, 240, 240), std::vector<std::int16_t>(frame63.begin(), frame63.end()));
}

TEST(NarrationDecoder, ComfortNoiseHasABoundedLevelThatFollowsTheGain)
{
    // Speech first, so the noise generator has an excitation history to shape, then a packet of
    // silence descriptions with a low and one with a high gain index.
    auto rmsAfterSpeech = [](int gainIndex) {
        NarrationDecoder decoder;
        Bytes chunk = Packet({3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, SixteenSpeechFrames(7));
        Bytes silence;
        for (std::uint32_t i = 0; i < 16; ++i)
            Append(silence, SilenceFrame(gainIndex, 9));
        Append(chunk, Packet({2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2}, silence));
        const Bytes pcm = DecodeToPcm(decoder, chunk);
        EXPECT_EQ(pcm.size(), 2 * kPacketPcmBytes);
        const double rms = Rms(Samples(pcm, 3840 + 8 * 240)); // The last eight noise frames.
        return rms;
    };
    // The gain index, used as it is transmitted, sets the target level (index x 128 per sample) of the
    // excitation, and the pulse gain is a whole number of full-scale steps: below index 39 it rounds
    // to zero and the speech history fades out; at 63 it gives a loud hiss that still stays clear of
    // the full-scale square wave a runaway gain would give.
    EXPECT_LT(rmsAfterSpeech(0), 100.0);
    EXPECT_LT(rmsAfterSpeech(30), 100.0);
    const double loud = rmsAfterSpeech(63);
    EXPECT_GT(loud, 1000.0);
    EXPECT_LT(loud, 20000.0);
}

TEST(NarrationDecoder, ChunksDecodeIndependentlyExceptForTheNoiseGenerator)
{
    NarrationDecoder decoder;
    const Bytes speech = Packet({3, 3, 3, 3}, SixteenSpeechFrames(3));
    EXPECT_EQ(DecodeToPcm(decoder, speech), DecodeToPcm(decoder, speech));
    const Bytes noise = Packet({3, 1, 1, 1, 1, 1, 1, 1, 1}, [] {
        auto f = SpeechFrame63(1);
        f.resize(32, 3);
        return f;
    }());
    EXPECT_NE(DecodeToPcm(decoder, noise), DecodeToPcm(decoder, noise));
}

TEST(NarrationDecoder, EveryPrefixOfAChunkDecodesCleanly)
{
    Bytes chunk = Packet({3, 2, 1, 3}, [] {
        auto p = SpeechFrame63(11);
        Append(p, SilenceFrame(12, 2));
        p.push_back(3);
        Append(p, SpeechFrame63(12));
        return p;
    }());
    const std::size_t first = chunk.size();
    Append(chunk, Packet({3}, SpeechFrame63(13)));
    Capture capture;
    NarrationDecoder decoder;
    for (std::size_t length = 0; length <= chunk.size(); ++length) {
        SCOPED_TRACE(length);
        const std::size_t packets = length < 8 ? 0 : length < first + 8 ? 1 : 2;
        EXPECT_EQ(
            DecodeToPcm(decoder, Bytes(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(length)))
                .size(),
            packets * kPacketPcmBytes);
    }
}

TEST(NarrationDecoder, ForbiddenCodesDecodeWithoutLeavingTheTables)
{
    // All-ones frames carry the forbidden lag codes, gain words past the tables and invalid pulse
    // positions; the sanitizer builds check that decoding them stays in bounds.
    Bytes ones(24, 0xff);
    for (unsigned type = 0; type < 4; ++type) {
        ones[0] = static_cast<std::uint8_t>(0xfc | type);
        NarrationDecoder decoder;
        std::array<std::int16_t, kFrameSamples> samples;
        for (int i = 0; i < 8; ++i)
            EXPECT_GT(decoder.DecodeFrame(0, ones, samples), 0);
    }
    std::array<std::int32_t, 10> wild = {-5000, 0, 40000, 70000, -1, 32767, 65535, 1 << 30, -(1 << 30), 12};
    EXPECT_EQ(LspToFilter(wild).size(), 10u);
}

TEST(NarrationDecoder, WaveFileLengthsAreRewritten)
{
    Capture capture;
    const auto path = (std::filesystem::temp_directory_path() / "lumenar-narration-test.wav").string();
    Bytes chunk;
    for (int i = 0; i < 3; ++i)
        Append(chunk, Packet({3, 3}, SixteenSpeechFrames(static_cast<std::uint32_t>(i))));
    ASSERT_EQ(DecodeNarration(chunk, path), 1);
    const Bytes file = testing::ReadFile(path);
    std::filesystem::remove(path);
    ASSERT_EQ(file.size(), 44u + 3 * 7680);
    const auto header = MakeWaveHeader(3 * 7680);
    EXPECT_TRUE(std::equal(header.begin(), header.end(), file.begin()));
    EXPECT_EQ(file[4] | file[5] << 8 | file[6] << 16, 36 + 3 * 7680);
    EXPECT_EQ(file[40] | file[41] << 8 | file[42] << 16, 3 * 7680);
    EXPECT_EQ(DecodeNarration(chunk, "/nonexistent-folder/x.wav"), 0);
}

TEST(NarrationDecoder, ReplaysFuzzRegressions)
{
    Capture capture;
    const auto path = (std::filesystem::temp_directory_path() / "lumenar-narration-regress.wav").string();
    const auto inputs = testing::RegressionInputs("audio/regress");
    EXPECT_FALSE(inputs.empty());
    for (const auto& [name, chunk] : inputs) {
        SCOPED_TRACE(name);
        EXPECT_EQ(DecodeNarration(chunk, path), 1);
        EXPECT_EQ((std::filesystem::file_size(path) - 44) % kPacketPcmBytes, 0u);
    }
    std::filesystem::remove(path);
}

} // namespace
} // namespace lumenar::audio
