// Narration decoding speed in multiples of real time, for 60 s of speech, next to ffmpeg's G.723.1
// decoder (libavcodec, in-process, postfilter off: the same work as ours) on the same frames.
//
// The frames are made at start-up like the speech test makes them: espeak-ng speaks a paragraph, sox
// resamples it to 8 kHz, ffmpeg encodes 6.3 kbit/s frames; the frame stream is repeated to 2000
// frames (60 s). The "x_realtime" counter is seconds of speech decoded per second.
#include "audio/NarrationDecoder.h"
#include "audio/NarrationPacker.h"

#include <benchmark/benchmark.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
}

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFrames = 2000; // 60 s of 30 ms frames.
constexpr double kSeconds = kFrames * 0.030;

const std::vector<std::uint8_t>& SpeechFrames()
{
    static const std::vector<std::uint8_t> frames = [] {
        const fs::path folder = fs::temp_directory_path() / "lumenar-narration-bench";
        fs::create_directories(folder);
        const std::string command =
            "cd '" + folder.string() +
            "' && espeak-ng -w speech.wav 'Every film can carry a narration, spoken while its pictures play. "
            "The "
            "quick brown fox jumps over the lazy dog, and seven slow swans swim south in a silver sea while "
            "the "
            "evening light fades over the hills.' && sox speech.wav -r 8000 -c 1 -b 16 speech8k.wav && "
            "ffmpeg "
            "-nostdin -loglevel error -y -i speech8k.wav -c:a g723_1 -b:a 6300 -f g723_1 speech.tco";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "NarrationBench: making speech frames failed (scripts/install-deps installs "
                                 "espeak-ng, sox and ffmpeg)\n");
            std::exit(1);
        }
        std::ifstream in(folder / "speech.tco", std::ios::binary);
        const std::vector<std::uint8_t> once{std::istreambuf_iterator<char>(in),
                                             std::istreambuf_iterator<char>()};
        fs::remove_all(folder);
        std::vector<std::uint8_t> all;
        while (all.size() < kFrames * 24)
            all.insert(all.end(), once.begin(), once.end());
        all.resize(kFrames * 24);
        return all;
    }();
    return frames;
}

void BM_LumenarNarration(benchmark::State& state)
{
    const auto packed = lumenar::audio::PackFrames(SpeechFrames());
    if (!packed.ok()) {
        state.SkipWithError(packed.error().message.c_str());
        return;
    }
    lumenar::audio::NarrationDecoder decoder;
    std::uint64_t checksum = 0;
    for (auto _ : state) {
        decoder.DecodeChunk(*packed, [&](std::span<const std::uint8_t> pcm) { checksum += pcm[100]; });
    }
    benchmark::DoNotOptimize(checksum);
    state.counters["x_realtime"] =
        benchmark::Counter(kSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["us_per_frame"] =
        benchmark::Counter(static_cast<double>(kFrames) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_LumenarNarration)->Unit(benchmark::kMillisecond);

void BM_LibavcodecG7231(benchmark::State& state)
{
    const auto& frames = SpeechFrames();
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_G723_1);
    AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!context) {
        state.SkipWithError("libavcodec has no G.723.1 decoder");
        return;
    }
    context->sample_rate = 8000;
    av_channel_layout_default(&context->ch_layout, 1);
    AVDictionary* options = nullptr;
    av_dict_set(&options, "postfilter", "0", 0);
    if (avcodec_open2(context, codec, &options) < 0) {
        av_dict_free(&options);
        avcodec_free_context(&context);
        state.SkipWithError("cannot open libavcodec's G.723.1 decoder");
        return;
    }
    av_dict_free(&options);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::uint64_t checksum = 0;
    for (auto _ : state) {
        for (std::size_t f = 0; f < kFrames; ++f) {
            packet->data = const_cast<std::uint8_t*>(frames.data() + 24 * f);
            packet->size = 24;
            if (avcodec_send_packet(context, packet) < 0)
                continue;
            while (avcodec_receive_frame(context, frame) == 0) {
                checksum += frame->data[0][100];
                av_frame_unref(frame);
            }
        }
    }
    benchmark::DoNotOptimize(checksum);
    state.counters["x_realtime"] =
        benchmark::Counter(kSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["us_per_frame"] =
        benchmark::Counter(static_cast<double>(kFrames) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
}
BENCHMARK(BM_LibavcodecG7231)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
