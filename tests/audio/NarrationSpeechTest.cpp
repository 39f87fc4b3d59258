// Our decoder against ffmpeg's G.723.1 decoder on real speech: espeak-ng speaks, sox resamples to
// 8 kHz, ffmpeg encodes 6.3 kbit/s frames, `lumenar narration --pack` packs them, and both decoders
// decode the same frames (ffmpeg with its postfilter off, which then doubles its output as we do).
//
// Our arithmetic differs from ffmpeg's on purpose (single-precision filter conversion, our own LSP
// stability passes, 32-bit wrapping rather than saturation), but only in the last bits: on this speech
// the two agree to about 49 dB segmental SNR (worst frame about 33 dB). Deliberately broken decoders
// score far lower on the same speech: the second subframe's lag off by one 9.5 dB, the first LSP band
// read with the second band's index 1.5 dB, the two adaptive gain tables swapped 2.0 dB, the pulse
// signs flipped -6 dB. The bounds below sit well between.
#include "tests/support/WriteFile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr double kMinMeanSegmentalSnr = 35.0; // dB, over the active 30 ms frames.
constexpr double kMinFrameSnr = 20.0;         // dB, the worst active frame.

using lumenar::testing::ReadFile;

std::vector<std::int16_t> Pcm(const std::vector<std::uint8_t>& bytes, std::size_t skip)
{
    std::vector<std::int16_t> out;
    for (std::size_t i = skip; i + 1 < bytes.size(); i += 2)
        out.push_back(static_cast<std::int16_t>(bytes[i] | bytes[i + 1] << 8));
    return out;
}

class NarrationSpeech : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::random_device random;
        folder_ = fs::temp_directory_path() / ("lumenar-speech-" + std::to_string(random()));
        fs::create_directories(folder_);
    }
    void TearDown() override { fs::remove_all(folder_); }

    // Runs a shell command in the work folder; a missing tool fails the test with its name.
    void Run(const std::string& tool, const std::string& arguments)
    {
        const std::string command =
            "cd '" + folder_.string() + "' && " + tool + " " + arguments + " 2>stderr.txt";
        if (std::system(command.c_str()) != 0) {
            std::ifstream err(folder_ / "stderr.txt");
            const std::string text{std::istreambuf_iterator<char>(err), std::istreambuf_iterator<char>()};
            FAIL() << tool << " failed (scripts/install-deps installs espeak-ng, sox and ffmpeg): " << command
                   << "\n"
                   << text;
        }
    }

    fs::path folder_;
};

TEST_F(NarrationSpeech, MatchesFfmpegDecoderWithoutPostfilter)
{
    ASSERT_NO_FATAL_FAILURE(Run("espeak-ng",
                                "-w speech.wav 'The quick brown fox jumps over the lazy dog. "
                                "Every film can carry a narration, spoken while its pictures play. "
                                "Seven slow swans swam south in a silver sea.'"));
    ASSERT_NO_FATAL_FAILURE(Run("sox", "speech.wav -r 8000 -c 1 -b 16 speech8k.wav"));
    ASSERT_NO_FATAL_FAILURE(Run(
        "ffmpeg", "-nostdin -loglevel error -y -i speech8k.wav -c:a g723_1 -b:a 6300 -f g723_1 speech.tco"));
    ASSERT_NO_FATAL_FAILURE(Run(LUMENAR_BINARY, "narration --pack speech.tco -o speech.ca"));
    ASSERT_NO_FATAL_FAILURE(Run(LUMENAR_BINARY, "narration speech.ca -o ours.wav"));
    ASSERT_NO_FATAL_FAILURE(
        Run("ffmpeg",
            "-nostdin -loglevel error -y -postfilter 0 -f g723_1 -i speech.tco -f s16le reference.raw"));

    const auto frames = fs::file_size(folder_ / "speech.tco") / 24;
    const auto ours = Pcm(ReadFile(folder_ / "ours.wav"), 44);
    const auto reference = Pcm(ReadFile(folder_ / "reference.raw"), 0);
    ASSERT_GE(frames, 150u) << "a few sentences make more than 4.5 s of speech";
    ASSERT_EQ(reference.size(), frames * 240);
    ASSERT_EQ(ours.size(), (frames + 15) / 16 * 16 * 240);

    double sumSnr = 0;
    double worst = 1e9;
    int active = 0;
    for (std::size_t f = 0; f < frames; ++f) {
        double signal = 0;
        double error = 0;
        for (std::size_t n = f * 240; n < (f + 1) * 240; ++n) {
            signal += double(reference[n]) * reference[n];
            error += (double(reference[n]) - ours[n]) * (double(reference[n]) - ours[n]);
        }
        if (signal < 240.0 * 100 * 100) // Frames quieter than -50 dBFS say little about the decoder.
            continue;
        const double snr = 10 * std::log10(signal / std::max(error, 1.0));
        sumSnr += snr;
        worst = std::min(worst, snr);
        ++active;
    }
    ASSERT_GT(active, static_cast<int>(frames / 2));
    const double mean = sumSnr / active;
    std::printf(
        "narration vs ffmpeg: %d active frames of %zu, segmental SNR mean %.1f dB, worst frame %.1f dB\n",
        active, static_cast<std::size_t>(frames), mean, worst);
    EXPECT_GE(mean, kMinMeanSegmentalSnr);
    EXPECT_GE(worst, kMinFrameSnr);
}

} // namespace
