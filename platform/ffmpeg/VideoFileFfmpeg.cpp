// Video files through FFmpeg's libraries: libswscale converts the pictures, libswresample the sound,
// libavcodec encodes both and libavformat muxes them.
#include "platform/VideoFile.h"

#include "base/Stopwatch.h"
#include "base/StrCat.h"
#include "platform/Path.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

namespace lumenar::platform {

namespace {

struct CodecContextFree
{
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree
{
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree
{
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsFree
{
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};
struct SwrFree
{
    void operator()(SwrContext* s) const { swr_free(&s); }
};
struct FifoFree
{
    void operator()(AVAudioFifo* f) const { av_audio_fifo_free(f); }
};
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using SwsPtr = std::unique_ptr<SwsContext, SwsFree>;
using SwrPtr = std::unique_ptr<SwrContext, SwrFree>;
using FifoPtr = std::unique_ptr<AVAudioFifo, FifoFree>;

std::string AvText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

base::Error AvError(const std::string& path, const char* what, int code)
{
    return base::Error{base::ErrorCode::Io, base::StrCat(path, ": ", what, ": ", AvText(code))};
}

constexpr int kSoundChannels = 2;

class FfmpegVideoWriter final : public VideoWriter
{
public:
    FfmpegVideoWriter(std::string path, VideoKind kind, const VideoSettings& settings)
        : path_(std::move(path)), kind_(kind), settings_(settings)
    {
    }

    ~FfmpegVideoWriter() override
    {
        if (format_ != nullptr) {
            if (format_->pb != nullptr)
                avio_closep(&format_->pb);
            avformat_free_context(format_);
        }
    }

    base::Status Open()
    {
        const char* muxer = kind_ == VideoKind::Mp4 ? "mp4" : "webm";
        if (int r = avformat_alloc_output_context2(&format_, nullptr, muxer, path_.c_str()); r < 0)
            return AvError(path_, "the container cannot be made", r);
        LUM_TRY(OpenVideo());
        if (settings_.withSound)
            LUM_TRY(OpenSound());
        if (int r = avio_open(&format_->pb, path_.c_str(), AVIO_FLAG_WRITE); r < 0)
            return AvError(path_, "cannot be written", r);
        AVDictionary* options = nullptr;
        if (kind_ == VideoKind::Mp4)
            av_dict_set(&options, "movflags", "+faststart", 0); // Playable while it downloads.
        // Fixed muxer output: no encoder version or creation time in the file.
        format_->flags |= AVFMT_FLAG_BITEXACT;
        const int r = avformat_write_header(format_, &options);
        av_dict_free(&options);
        if (r < 0)
            return AvError(path_, "the header cannot be written", r);
        packet_.reset(av_packet_alloc());
        return {};
    }

    base::Status AddFrame(std::span<const std::uint8_t> topDownBgrx, std::uint64_t ms) override
    {
        if (Pts(ms) <= lastPts_)
            return {};
        return AddPicture(LUM_TRY(Convert(topDownBgrx)), ms);
    }

    base::Result<std::shared_ptr<const VideoPicture>>
    Convert(std::span<const std::uint8_t> topDownBgrx) override
    {
        const std::size_t row = std::size_t(settings_.width) * 4;
        if (topDownBgrx.size() < row * std::size_t(settings_.height))
            return base::Error{
                base::ErrorCode::InvalidInput,
                base::StrCat(path_, ": a frame of ", topDownBgrx.size(), " bytes is too small")};
        const auto started = std::chrono::steady_clock::now();
        auto picture = std::make_shared<Picture>();
        picture->frame.reset(av_frame_alloc());
        AVFrame* frame = picture->frame.get();
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = settings_.width;
        frame->height = settings_.height;
        if (int r = av_frame_get_buffer(frame, 0); r < 0)
            return AvError(path_, "no frame memory", r);
        const std::uint8_t* source[1] = {topDownBgrx.data()};
        const int strides[1] = {static_cast<int>(row)};
        {
            std::lock_guard guard(scalerLock_);
            sws_scale(scaler_.get(), source, strides, 0, settings_.height, frame->data, frame->linesize);
        }
        convertNs_ +=
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - started)
                .count();
        return std::shared_ptr<const VideoPicture>(std::move(picture));
    }

    base::Status AddPicture(std::shared_ptr<const VideoPicture> picture, std::uint64_t ms) override
    {
        const auto* ours = dynamic_cast<const Picture*>(picture.get());
        if (ours == nullptr)
            return base::Error{base::ErrorCode::InvalidInput,
                               base::StrCat(path_, ": a picture of another writer")};
        const std::int64_t pts = Pts(ms);
        if (pts <= lastPts_)
            return {};
        last_ = std::move(picture);
        return EncodePicture(pts);
    }

    base::Status RepeatFrame(std::uint64_t ms) override
    {
        if (!last_)
            return {};
        const std::int64_t pts = Pts(ms);
        if (pts <= lastPts_)
            return {};
        return EncodePicture(pts);
    }

    base::Status AddSound(std::span<const std::uint8_t> pcm, const WaveFormat& format) override
    {
        if (!sound_ || pcm.empty())
            return {};
        if (!resampler_) {
            LUM_TRY(CheckPlayableFormat(format));
            if (format.formatTag != 1)
                return base::Error{
                    base::ErrorCode::Unsupported,
                    base::StrCat(path_, ": sound of format ", format.formatTag, " is not PCM")};
            soundIn_ = format;
            AVChannelLayout in{};
            av_channel_layout_default(&in, format.channels);
            SwrContext* made = nullptr;
            int r = swr_alloc_set_opts2(&made, &sound_->ch_layout, sound_->sample_fmt, sound_->sample_rate,
                                        &in, format.bitsPerSample == 8 ? AV_SAMPLE_FMT_U8 : AV_SAMPLE_FMT_S16,
                                        static_cast<int>(format.samplesPerSec), 0, nullptr);
            resampler_.reset(made);
            if (r >= 0)
                r = swr_init(resampler_.get());
            if (r < 0)
                return AvError(path_, "the sound cannot be resampled", r);
        } else if (format.channels != soundIn_.channels || format.samplesPerSec != soundIn_.samplesPerSec ||
                   format.bitsPerSample != soundIn_.bitsPerSample) {
            return base::Error{
                base::ErrorCode::Unsupported,
                base::StrCat(path_, ": the sound changes format at ", soundSamples_, " samples")};
        }
        const int blocks = static_cast<int>(pcm.size() / std::max<std::uint16_t>(soundIn_.blockAlign, 1));
        const std::uint8_t* in[1] = {pcm.data()};
        {
            base::Stopwatch converting(timings_.convert);
            LUM_TRY(Resample(in, blocks));
        }
        return DrainSound(false);
    }

    VideoTimings Timings() const override
    {
        VideoTimings timings = timings_;
        timings.convert += static_cast<double>(convertNs_.load()) / 1e9;
        return timings;
    }

    base::Status Finish(std::uint64_t endMs) override
    {
        if (last_) {
            // The last picture stays until the end: a variable-rate frame says so by its duration, a
            // constant-rate video by repeating it.
            if (settings_.framesPerSecond > 0) {
                const std::int64_t last = Pts(endMs) - 1;
                for (std::int64_t pts = lastPts_ + 1; pts <= last; ++pts)
                    LUM_TRY(EncodePicture(pts));
            } else {
                lastDuration_ = std::max<std::int64_t>(1, static_cast<std::int64_t>(endMs) - lastPts_);
            }
        }
        LUM_TRY(Flush(video_.get(), videoStream_));
        if (sound_) {
            if (resampler_)
                LUM_TRY(Resample(nullptr, 0));
            const std::int64_t wanted =
                static_cast<std::int64_t>(endMs) * sound_->sample_rate / 1000 - soundSamples_ - Fifo();
            LUM_TRY(PadSilence(wanted));
            LUM_TRY(DrainSound(true));
            LUM_TRY(Flush(sound_.get(), soundStream_));
        }
        if (int r = av_write_trailer(format_); r < 0)
            return AvError(path_, "the file cannot be completed", r);
        if (int r = avio_closep(&format_->pb); r < 0)
            return AvError(path_, "cannot be written", r);
        return {};
    }

private:
    base::Status OpenVideo()
    {
        const char* name = kind_ == VideoKind::Mp4 ? "libx264" : "libvpx-vp9";
        const AVCodec* codec = avcodec_find_encoder_by_name(name);
        if (codec == nullptr)
            return base::Error{base::ErrorCode::Unsupported, base::StrCat(path_, ": no ", name, " encoder")};
        video_.reset(avcodec_alloc_context3(codec));
        AVCodecContext* c = video_.get();
        c->width = settings_.width;
        c->height = settings_.height;
        c->pix_fmt = AV_PIX_FMT_YUV420P;
        c->color_range = AVCOL_RANGE_MPEG;
        c->colorspace = AVCOL_SPC_SMPTE170M;
        c->color_primaries = AVCOL_PRI_SMPTE170M;
        c->color_trc = AVCOL_TRC_SMPTE170M;
        if (settings_.framesPerSecond > 0) {
            c->time_base = {1, settings_.framesPerSecond};
            c->framerate = {settings_.framesPerSecond, 1};
        } else {
            c->time_base = {1, 1000};
            c->framerate = {18, 1}; // The player's own pace, a hint for the rate control.
        }
        c->gop_size = 250;
        // Every core: both encoders give the same bytes whatever the number of threads.
        c->thread_count = 0;
        c->flags |= AV_CODEC_FLAG_BITEXACT;
        if (format_->oformat->flags & AVFMT_GLOBALHEADER)
            c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        const int quality = std::clamp(settings_.quality, 1, 100);
        AVDictionary* options = nullptr;
        if (kind_ == VideoKind::Mp4) {
            // Quality 100 is crf 10, 75 is 20, 1 is about 50.
            av_dict_set_int(&options, "crf", std::lround(50.0 - (quality - 1) * 40.0 / 99.0), 0);
            av_dict_set(&options, "preset", "veryfast", 0);
            av_dict_set(&options, "profile", "high", 0);
        } else {
            c->bit_rate = 0;
            av_dict_set_int(&options, "crf", std::lround(60.0 - (quality - 1) * 45.0 / 99.0), 0);
            av_dict_set(&options, "deadline", "realtime", 0);
            av_dict_set(&options, "cpu-used", "8", 0);
            av_dict_set(&options, "row-mt", "1", 0);
        }
        const int r = avcodec_open2(c, codec, &options);
        av_dict_free(&options);
        if (r < 0)
            return AvError(path_, "the video encoder refuses these settings", r);
        videoStream_ = avformat_new_stream(format_, nullptr);
        if (videoStream_ == nullptr)
            return base::Error{base::ErrorCode::Io, base::StrCat(path_, ": no video stream")};
        videoStream_->time_base = c->time_base;
        if (settings_.framesPerSecond > 0)
            videoStream_->avg_frame_rate = c->framerate;
        if (int p = avcodec_parameters_from_context(videoStream_->codecpar, c); p < 0)
            return AvError(path_, "the video stream", p);

        sending_.reset(av_frame_alloc());
        // BGRA rather than BGR0: libswscale has its fast input paths for the former; X is ignored.
        scaler_.reset(sws_getContext(c->width, c->height, AV_PIX_FMT_BGRA, c->width, c->height, c->pix_fmt,
                                     SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
        const bool configured = scaler_ != nullptr;
        if (!configured)
            return base::Error{base::ErrorCode::Unsupported, base::StrCat(path_, ": no colour converter")};
        return {};
    }

    base::Status OpenSound()
    {
        const char* name = kind_ == VideoKind::Mp4 ? "aac" : "libopus";
        const AVCodec* codec = avcodec_find_encoder_by_name(name);
        if (codec == nullptr)
            return base::Error{base::ErrorCode::Unsupported, base::StrCat(path_, ": no ", name, " encoder")};
        sound_.reset(avcodec_alloc_context3(codec));
        AVCodecContext* c = sound_.get();
        c->sample_rate = 48000;
        av_channel_layout_default(&c->ch_layout, kSoundChannels);
        c->sample_fmt = codec->sample_fmts != nullptr ? codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
        c->bit_rate = kind_ == VideoKind::Mp4 ? 128000 : 96000;
        c->time_base = {1, c->sample_rate};
        c->flags |= AV_CODEC_FLAG_BITEXACT;
        if (format_->oformat->flags & AVFMT_GLOBALHEADER)
            c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        AVDictionary* options = nullptr;
        if (kind_ == VideoKind::Mp4)
            av_dict_set(&options, "aac_coder", "fast", 0); // A third of the default's time, for speech.
        const int r = avcodec_open2(c, codec, &options);
        av_dict_free(&options);
        if (r < 0)
            return AvError(path_, "the sound encoder refuses these settings", r);
        soundStream_ = avformat_new_stream(format_, nullptr);
        if (soundStream_ == nullptr)
            return base::Error{base::ErrorCode::Io, base::StrCat(path_, ": no sound stream")};
        soundStream_->time_base = c->time_base;
        if (int p = avcodec_parameters_from_context(soundStream_->codecpar, c); p < 0)
            return AvError(path_, "the sound stream", p);
        fifo_.reset(av_audio_fifo_alloc(c->sample_fmt, kSoundChannels, 4096));
        chunk_.reset(av_frame_alloc());
        return {};
    }

    std::int64_t Pts(std::uint64_t ms) const
    {
        if (settings_.framesPerSecond > 0)
            return static_cast<std::int64_t>((ms * std::uint64_t(settings_.framesPerSecond) + 500) / 1000);
        return static_cast<std::int64_t>(ms);
    }

    // Sends the last picture again with its own time: a new reference to the same pixels.
    base::Status EncodePicture(std::int64_t pts)
    {
        AVFrame* frame = sending_.get();
        av_frame_unref(frame);
        if (int r = av_frame_ref(frame, static_cast<const Picture*>(last_.get())->frame.get()); r < 0)
            return AvError(path_, "no frame memory", r);
        frame->pts = pts;
        if (lastPts_ >= 0)
            lastDuration_ = pts - lastPts_;
        lastPts_ = pts;
        return Send(video_.get(), videoStream_, frame);
    }

    // Sends a frame (null: end of stream) and writes every packet that comes out.
    base::Status Send(AVCodecContext* codec, AVStream* stream, AVFrame* frame)
    {
        base::Stopwatch encoding(timings_.encode);
        if (int r = avcodec_send_frame(codec, frame); r < 0)
            return AvError(path_, "the encoder refused a frame", r);
        for (;;) {
            const int r = avcodec_receive_packet(codec, packet_.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF)
                return {};
            if (r < 0)
                return AvError(path_, "the encoder failed", r);
            if (codec == video_.get() && settings_.framesPerSecond == 0 && packet_->duration == 0)
                packet_->duration = lastDuration_;
            av_packet_rescale_ts(packet_.get(), codec->time_base, stream->time_base);
            packet_->stream_index = stream->index;
            if (int w = av_interleaved_write_frame(format_, packet_.get()); w < 0)
                return AvError(path_, "cannot be written", w);
        }
    }

    base::Status Flush(AVCodecContext* codec, AVStream* stream) { return Send(codec, stream, nullptr); }

    int Fifo() const { return fifo_ ? av_audio_fifo_size(fifo_.get()) : 0; }

    // Resamples `blocks` input blocks into the queue (null input: what the resampler still holds).
    base::Status Resample(const std::uint8_t** in, int blocks)
    {
        const int room = swr_get_out_samples(resampler_.get(), blocks);
        if (room <= 0)
            return {};
        std::uint8_t** planes = nullptr;
        if (int r = av_samples_alloc_array_and_samples(&planes, nullptr, kSoundChannels, room,
                                                       sound_->sample_fmt, 0);
            r < 0)
            return AvError(path_, "no sound memory", r);
        const int made = swr_convert(resampler_.get(), planes, room, in, blocks);
        base::Status status;
        if (made < 0)
            status = AvError(path_, "the sound cannot be resampled", made);
        else if (made > 0 && av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(planes), made) < made)
            status = base::Error{base::ErrorCode::Io, base::StrCat(path_, ": no sound memory")};
        av_freep(&planes[0]);
        av_freep(&planes);
        return status;
    }

    base::Status PadSilence(std::int64_t samples)
    {
        if (samples <= 0)
            return {};
        std::uint8_t** planes = nullptr;
        const int count = static_cast<int>(samples);
        if (int r = av_samples_alloc_array_and_samples(&planes, nullptr, kSoundChannels, count,
                                                       sound_->sample_fmt, 0);
            r < 0)
            return AvError(path_, "no sound memory", r);
        av_samples_set_silence(planes, 0, count, kSoundChannels, sound_->sample_fmt);
        const bool written =
            av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(planes), count) == count;
        av_freep(&planes[0]);
        av_freep(&planes);
        if (!written)
            return base::Error{base::ErrorCode::Io, base::StrCat(path_, ": no sound memory")};
        return {};
    }

    // Encodes the queued sound in whole encoder frames; at the end also the last, shorter one.
    base::Status DrainSound(bool last)
    {
        const int size = sound_->frame_size > 0 ? sound_->frame_size : 1024;
        while (Fifo() >= size || (last && Fifo() > 0)) {
            const int count = std::min(size, Fifo());
            AVFrame* f = chunk_.get();
            av_frame_unref(f);
            f->nb_samples =
                (sound_->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0 ? count : size;
            f->format = sound_->sample_fmt;
            f->sample_rate = sound_->sample_rate;
            if (int r = av_channel_layout_copy(&f->ch_layout, &sound_->ch_layout); r < 0)
                return AvError(path_, "no sound memory", r);
            if (int r = av_frame_get_buffer(f, 0); r < 0)
                return AvError(path_, "no sound memory", r);
            if (count < f->nb_samples)
                av_samples_set_silence(f->data, 0, f->nb_samples, kSoundChannels, sound_->sample_fmt);
            av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(f->data), count);
            f->pts = soundSamples_;
            soundSamples_ += count;
            LUM_TRY(Send(sound_.get(), soundStream_, f));
        }
        return {};
    }

    std::string path_;
    VideoKind kind_;
    VideoSettings settings_;
    AVFormatContext* format_ = nullptr;
    CodecContextPtr video_;
    CodecContextPtr sound_;
    AVStream* videoStream_ = nullptr;
    AVStream* soundStream_ = nullptr;
    struct Picture final : VideoPicture
    {
        FramePtr frame;
    };
    std::shared_ptr<const VideoPicture> last_; // The picture encoded last.
    FramePtr sending_;                         // The reference to it that goes to the encoder.
    FramePtr chunk_;
    PacketPtr packet_;
    std::mutex scalerLock_; // Guards scaler_: Convert runs on a thread of its own.
    SwsPtr scaler_;
    std::atomic<std::int64_t> convertNs_{0};
    SwrPtr resampler_;
    FifoPtr fifo_;
    WaveFormat soundIn_;
    std::int64_t lastPts_ = -1;
    std::int64_t lastDuration_ = 1;
    std::int64_t soundSamples_ = 0; // Samples sent to the sound encoder.
    VideoTimings timings_;
};

} // namespace

std::optional<VideoKind> VideoKindOf(const std::string& path)
{
    const std::string ext = LowerExtension(path);
    if (ext == "mp4")
        return VideoKind::Mp4;
    if (ext == "webm")
        return VideoKind::Webm;
    return std::nullopt;
}

base::Result<std::unique_ptr<VideoWriter>> OpenVideoFile(const std::string& path, VideoKind kind,
                                                         const VideoSettings& settings)
{
    if (settings.width < 16 || settings.height < 16 || settings.width % 2 != 0 || settings.height % 2 != 0 ||
        settings.width > 8192 || settings.height > 8192)
        return base::Error{base::ErrorCode::InvalidInput,
                           base::StrCat(path, ": a video of ", settings.width, "x", settings.height,
                                        " cannot be written (even sizes from 16 to 8192)")};
    if (settings.framesPerSecond < 0 || settings.framesPerSecond > 240)
        return base::Error{base::ErrorCode::InvalidInput,
                           base::StrCat(path, ": ", settings.framesPerSecond, " frames a second")};
    av_log_set_level(AV_LOG_ERROR);
    auto writer = std::make_unique<FfmpegVideoWriter>(path, kind, settings);
    LUM_TRY(writer->Open());
    return std::unique_ptr<VideoWriter>(std::move(writer));
}

} // namespace lumenar::platform
