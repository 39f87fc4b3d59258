#include "platform/AnimationFile.h"

#include "base/StrCat.h"

#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace lumenar::platform::detail {

namespace {

using base::Error;
using base::ErrorCode;
using base::StrCat;

constexpr int kPaletteSize = 256;

class GifWriter : public AnimationWriter
{
public:
    GifWriter(std::string path, int width, int height, int frameMs, GifFileType* gif)
        : path_(std::move(path)), width_(width), height_(height), frameMs_(frameMs), gif_(gif)
    {
    }

    ~GifWriter() override
    {
        if (gif_ != nullptr) {
            int error = 0;
            EGifCloseFile(gif_, &error);
            std::remove(path_.c_str());
        }
    }

    base::Status Start()
    {
        EGifSetGifVersion(gif_, true);
        // The screen has no palette of its own: every frame brings the 256 colours that suit it.
        if (EGifPutScreenDesc(gif_, width_, height_, 8, 0, nullptr) == GIF_ERROR)
            return Failed("the screen");
        // The application extension that makes browsers loop the animation for ever.
        static const char kLoop[] = {1, 0, 0};
        if (EGifPutExtensionLeader(gif_, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
            EGifPutExtensionBlock(gif_, 11, "NETSCAPE2.0") == GIF_ERROR ||
            EGifPutExtensionBlock(gif_, 3, kLoop) == GIF_ERROR || EGifPutExtensionTrailer(gif_) == GIF_ERROR)
            return Failed("the loop");
        return {};
    }

    base::Status Add(const BgrxPicture& frame) override { return AddFor(frame, frameMs_); }

    base::Status AddFor(const BgrxPicture& frame, int durationMs) override
    {
        const std::size_t count = static_cast<std::size_t>(width_) * height_;
        if (frame.width != width_ || frame.height != height_ || frame.pixels.size() != count * 4)
            return Error{ErrorCode::InvalidInput, StrCat(path_, ": a ", frame.width, "x", frame.height,
                                                         " frame in a ", width_, "x", height_, " animation")};
        // The quantiser reads three planes, top row first.
        red_.resize(count);
        green_.resize(count);
        blue_.resize(count);
        indices_.resize(count);
        for (int y = 0; y < height_; ++y) {
            const std::uint8_t* from =
                frame.pixels.data() + static_cast<std::size_t>(height_ - 1 - y) * width_ * 4;
            const std::size_t to = static_cast<std::size_t>(y) * width_;
            for (int x = 0; x < width_; ++x) {
                blue_[to + x] = from[x * 4];
                green_[to + x] = from[x * 4 + 1];
                red_[to + x] = from[x * 4 + 2];
            }
        }
        std::array<GifColorType, kPaletteSize> palette{};
        int colours = kPaletteSize;
        if (GifQuantizeBuffer(static_cast<unsigned>(width_), static_cast<unsigned>(height_), &colours,
                              red_.data(), green_.data(), blue_.data(), indices_.data(),
                              palette.data()) == GIF_ERROR)
            return Error{ErrorCode::Io, StrCat(path_, ": a frame could not be reduced to 256 colours")};

        GraphicsControlBlock control{};
        control.DisposalMode = DISPOSE_DO_NOT;
        control.DelayTime = std::clamp((durationMs + 5) / 10, 0, 65535);
        control.TransparentColor = NO_TRANSPARENT_COLOR;
        GifByteType extension[4];
        const std::size_t length = EGifGCBToExtension(&control, extension);
        if (EGifPutExtension(gif_, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension) == GIF_ERROR)
            return Failed("a frame's timing");
        // The palette always has 256 entries, as the format wants a power of two; unused ones are black.
        ColorMapObject* map = GifMakeMapObject(kPaletteSize, palette.data());
        if (map == nullptr)
            return Error{ErrorCode::Io, StrCat(path_, ": no memory for a palette")};
        const bool described = EGifPutImageDesc(gif_, 0, 0, width_, height_, false, map) != GIF_ERROR;
        GifFreeMapObject(map);
        if (!described)
            return Failed("a frame");
        for (int y = 0; y < height_; ++y)
            if (EGifPutLine(gif_, indices_.data() + static_cast<std::size_t>(y) * width_, width_) ==
                GIF_ERROR)
                return Failed("a frame's pixels");
        return {};
    }

    base::Status Finish() override
    {
        int error = 0;
        GifFileType* gif = gif_;
        gif_ = nullptr;
        if (EGifCloseFile(gif, &error) == GIF_ERROR) {
            std::remove(path_.c_str());
            return Error{ErrorCode::Io, StrCat(path_, ": cannot be written (", GifErrorString(error), ")")};
        }
        return {};
    }

private:
    base::Status Failed(const char* what) const
    {
        return Error{ErrorCode::Io,
                     StrCat(path_, ": cannot write ", what, " (", GifErrorString(gif_->Error), ")")};
    }

    std::string path_;
    int width_;
    int height_;
    int frameMs_;
    GifFileType* gif_;
    std::vector<GifByteType> red_, green_, blue_, indices_;
};

} // namespace

base::Result<std::unique_ptr<AnimationWriter>> OpenGif(const std::string& path, int width, int height,
                                                       int frameMs)
{
    int error = 0;
    GifFileType* gif = EGifOpenFileName(path.c_str(), false, &error);
    if (gif == nullptr)
        return Error{ErrorCode::Io, StrCat(path, ": cannot be written (", GifErrorString(error), ")")};
    auto writer = std::make_unique<GifWriter>(path, width, height, frameMs, gif);
    LUM_TRY(writer->Start());
    return std::unique_ptr<AnimationWriter>(std::move(writer));
}

} // namespace lumenar::platform::detail
