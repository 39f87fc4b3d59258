#include "platform/AnimationFile.h"

#include "base/StrCat.h"

#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace lumenar::platform::detail {

namespace {

using base::Error;
using base::ErrorCode;
using base::StrCat;

struct EncoderDelete
{
    void operator()(WebPAnimEncoder* encoder) const { WebPAnimEncoderDelete(encoder); }
};

class WebpWriter : public AnimationWriter
{
public:
    WebpWriter(std::string path, int width, int height, int frameMs, WebPAnimEncoder* encoder)
        : path_(std::move(path)), width_(width), height_(height), frameMs_(frameMs), encoder_(encoder)
    {
        WebPConfigInit(&config_);
        // Lossy: previews of photographs are a tenth of their lossless size and look the same.
        config_.quality = 85;
        config_.method = 4;
    }

    base::Status Add(const BgrxPicture& frame) override { return AddFor(frame, frameMs_); }

    base::Status AddFor(const BgrxPicture& frame, int durationMs) override
    {
        if (frame.width != width_ || frame.height != height_ ||
            frame.pixels.size() != static_cast<std::size_t>(width_) * height_ * 4)
            return Error{ErrorCode::InvalidInput, StrCat(path_, ": a ", frame.width, "x", frame.height,
                                                         " frame in a ", width_, "x", height_, " animation")};
        WebPPicture picture;
        if (!WebPPictureInit(&picture))
            return Error{ErrorCode::Unsupported, StrCat(path_, ": libwebp is not the version built against")};
        picture.use_argb = 1;
        picture.width = width_;
        picture.height = height_;
        // Our rows are stored bottom row first: start at the top row and step backwards.
        const int stride = width_ * 4;
        const std::uint8_t* top = frame.pixels.data() + static_cast<std::size_t>(height_ - 1) * stride;
        const bool imported = WebPPictureImportBGRX(&picture, top, -stride) != 0;
        const bool added = imported && WebPAnimEncoderAdd(encoder_.get(), &picture, at_, &config_) != 0;
        WebPPictureFree(&picture);
        if (!added)
            return Error{ErrorCode::Io, StrCat(path_, ": the WebP encoder refused a frame (",
                                               WebPAnimEncoderGetError(encoder_.get()), ")")};
        at_ += std::max(durationMs, 1);
        return {};
    }

    base::Status Finish() override
    {
        WebPData data;
        WebPDataInit(&data);
        if (!WebPAnimEncoderAdd(encoder_.get(), nullptr, at_, nullptr) ||
            !WebPAnimEncoderAssemble(encoder_.get(), &data))
            return Error{ErrorCode::Io, StrCat(path_, ": the WebP encoder could not finish (",
                                               WebPAnimEncoderGetError(encoder_.get()), ")")};
        std::FILE* file = std::fopen(path_.c_str(), "wb");
        bool written = file != nullptr && std::fwrite(data.bytes, 1, data.size, file) == data.size;
        if (file != nullptr && std::fclose(file) != 0)
            written = false;
        WebPDataClear(&data);
        if (!written) {
            std::remove(path_.c_str());
            return Error{ErrorCode::Io, StrCat(path_, ": cannot be written")};
        }
        return {};
    }

private:
    std::string path_;
    int width_;
    int height_;
    int frameMs_;
    int at_ = 0;
    WebPConfig config_{};
    std::unique_ptr<WebPAnimEncoder, EncoderDelete> encoder_;
};

} // namespace

base::Result<std::unique_ptr<AnimationWriter>> OpenWebp(const std::string& path, int width, int height,
                                                        int frameMs)
{
    WebPAnimEncoderOptions options;
    if (!WebPAnimEncoderOptionsInit(&options))
        return Error{ErrorCode::Unsupported, StrCat(path, ": libwebp is not the version built against")};
    options.anim_params.loop_count = 0;
    WebPAnimEncoder* encoder = WebPAnimEncoderNew(width, height, &options);
    if (encoder == nullptr)
        return Error{ErrorCode::Io, StrCat(path, ": the WebP encoder cannot be made")};
    return std::unique_ptr<AnimationWriter>(
        std::make_unique<WebpWriter>(path, width, height, frameMs, encoder));
}

} // namespace lumenar::platform::detail
