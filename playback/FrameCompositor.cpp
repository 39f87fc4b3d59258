#include "playback/FrameCompositor.h"

#include "codec/Photo.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace lumenar::playback {

namespace {

constexpr int kMaxSide = 32767; // Keeps every 16.16 step and pixel offset within 32 bits.

/// A photo's pixels as the resamplers read them: 32-bit BGRX, bottom row first. The decoded picture is
/// read in place; copying a packed bitmap of a large photo first would double the work for nothing.
struct PhotoView
{
    const std::uint8_t* rows = nullptr;
    int width = 0;
    int height = 0;
};

bool OpenPhoto(const codec::Photo& photo, PhotoView& view)
{
    const codec::PhotoBitmap* bitmap = photo.Bitmap();
    if (bitmap == nullptr || bitmap->BitCount() != 32)
        return false;
    view.width = bitmap->Width();
    view.height = bitmap->Height();
    if (view.width <= 0 || view.height <= 0 || view.width > kMaxSide || view.height > kMaxSide)
        return false;
    auto pixels = bitmap->Pixels();
    if (pixels.size() < std::size_t(view.width) * view.height * 4)
        return false;
    view.rows = pixels.data();
    return true;
}

/// For each destination index the source pixels it covers and by how much, in units of 1/dn of a
/// source pixel (so the overlaps of one destination pixel add up to sn).
struct AxisWeights
{
    std::vector<int> first;  // First source index of destination d.
    std::vector<int> offset; // Where destination d's overlaps start in `overlap`.
    std::vector<std::uint32_t> overlap;
};

AxisWeights Weights(int sn, int dn)
{
    AxisWeights w;
    w.first.resize(dn);
    w.offset.resize(dn + 1);
    for (int d = 0; d < dn; ++d) {
        std::int64_t a = std::int64_t(d) * sn;
        std::int64_t b = std::int64_t(d + 1) * sn;
        int s = static_cast<int>(a / dn);
        w.first[d] = s;
        w.offset[d] = static_cast<int>(w.overlap.size());
        for (; std::int64_t(s) * dn < b && s < sn; ++s) {
            std::int64_t lo = std::max(a, std::int64_t(s) * dn);
            std::int64_t hi = std::min(b, std::int64_t(s + 1) * dn);
            w.overlap.push_back(static_cast<std::uint32_t>(hi - lo));
        }
    }
    w.offset[dn] = static_cast<int>(w.overlap.size());
    return w;
}

} // namespace

Rect FitRect(int designWidth, int designHeight, int clientWidth, int clientHeight)
{
    Rect rect{0, 0, clientWidth, clientHeight};
    if (designWidth <= 0 || designHeight <= 0 || clientWidth <= 0 || clientHeight <= 0)
        return rect;
    double a = double(designWidth) / designHeight;
    double b = double(clientWidth) / clientHeight;
    if (a > b) {
        int height = static_cast<int>(clientWidth / a);
        rect.top = (clientHeight - height) / 2;
        rect.bottom = rect.top + height;
    } else {
        int width = static_cast<int>(clientHeight * a);
        rect.left = (clientWidth - width) / 2;
        rect.right = rect.left + width;
    }
    return rect;
}

Rect FrameGeometry(int clientWidth, int clientHeight, bool large, FrameFit fit)
{
    int designWidth = large ? 800 : 640;
    int designHeight = large ? 600 : 480;
    if (fit == FrameFit::Design && designWidth < clientWidth && designHeight < clientHeight) {
        int left = (clientWidth - designWidth) / 2;
        int top = (clientHeight - designHeight) / 2;
        return {left, top, left + designWidth, top + designHeight};
    }
    Rect rect = FitRect(designWidth, designHeight, clientWidth, clientHeight);
    if (rect.Width() % 2 != 0)
        --rect.right;
    if (rect.Height() % 2 != 0)
        --rect.bottom;
    return rect;
}

int BilinearStretch(std::uint8_t* destination, int dw, int dh, const std::uint8_t* source, int bitCount,
                    int sw, int sh)
{
    if (bitCount != 32 && bitCount != 24)
        return 0;
    if (destination == nullptr || source == nullptr || dw <= 0 || dh <= 0 || sw <= 0 || sh <= 0 ||
        sw > kMaxSide || sh > kMaxSide)
        return 0;
    const int bytesPerPixel = bitCount / 8;
    const std::ptrdiff_t stride = bitCount == 32 ? std::ptrdiff_t(sw) * 4 : (std::ptrdiff_t(sw) * 3 + 3) & ~3;
    // Where the next-row pointer must stay below: the end of the image for 32 bits; for 24 bits the end
    // of the last row's pixels, which keeps the padding of the last row out of reach.
    const std::uint8_t* guard = bitCount == 32 ? source + stride * sh : source + stride * (sh - 1) + sw * 3;
    if (bitCount == 32 && dw == sw && dh == sh) {
        // Both steps are exactly one pixel and every weight is 0: the filter reproduces its source.
        for (std::size_t i = 0; i < std::size_t(dw) * dh; ++i) {
            std::memcpy(destination + i * 4, source + i * 4, 3);
            destination[i * 4 + 3] = 0;
        }
        return 1;
    }
    const std::int32_t ystep = static_cast<std::int32_t>((std::int64_t(sh) * 65536) / dh);
    const std::int32_t xstep = static_cast<std::int32_t>((std::int64_t(sw) * 65536) / dw);

    const std::uint8_t* row0 = source;
    const std::uint8_t* row1 = row0 + stride < guard ? row0 + stride : row0;
    std::int32_t fyAcc = 0;
    for (int y = 0; y < dh; ++y) {
        std::uint8_t* out = destination + std::size_t(y) * dw * 4;
        const std::int32_t wy = fyAcc & 0xFFFF;
        std::int32_t fxAcc = 0;
        for (int x = 0; x < dw; ++x) {
            int ix = fxAcc >> 16;
            int ix1 = ix + 1 >= sw ? ix : ix + 1;
            std::int32_t wx = fxAcc & 0xFFFF;
            const std::uint8_t* a = row0 + ix * bytesPerPixel;
            const std::uint8_t* b = row0 + ix1 * bytesPerPixel;
            const std::uint8_t* c = row1 + ix * bytesPerPixel;
            const std::uint8_t* d = row1 + ix1 * bytesPerPixel;
            for (int k = 0; k < 3; ++k) {
                std::int32_t top = a[k] + (((b[k] - a[k]) * wx) >> 16);
                std::int32_t bottom = c[k] + (((d[k] - c[k]) * wx) >> 16);
                out[x * 4 + k] = static_cast<std::uint8_t>(top + (((bottom - top) * wy) >> 16));
            }
            out[x * 4 + 3] = 0;
            fxAcc += xstep;
        }
        std::int32_t fyNew = fyAcc + ystep;
        std::ptrdiff_t advance = std::ptrdiff_t((fyNew >> 16) - (fyAcc >> 16)) * stride;
        // The rows never run past the last one (the steps are truncated), but a pointer is never
        // moved out of the picture on the strength of that alone.
        if (row0 + advance < guard)
            row0 += advance;
        row1 += advance;
        if (row1 >= guard)
            row1 = row0;
        fyAcc = fyNew;
    }
    return 1;
}

void ApplyMask(std::uint8_t* pixels, const std::uint8_t* maskPixels, int count)
{
    if (pixels == nullptr || maskPixels == nullptr || count < 1)
        return;
    for (int i = 0; i < count; ++i) {
        int m = 255 - maskPixels[i * 4];
        for (int k = 0; k < 3; ++k)
            pixels[i * 4 + k] = static_cast<std::uint8_t>(std::max(0, pixels[i * 4 + k] - m));
    }
}

void AreaStretch(std::uint8_t* destination, int destinationWidth, int destinationHeight, int dx, int dy,
                 int dw, int dh, const std::uint8_t* source, int sourceWidth, int sourceHeight, int sx,
                 int sy, int sw, int sh)
{
    // Clip both rectangles to their pictures, keeping the mapping between them.
    if (dw <= 0 || dh <= 0 || sw <= 0 || sh <= 0 || sx < 0 || sy < 0 || sx + sw > sourceWidth ||
        sy + sh > sourceHeight || dx < 0 || dy < 0 || dx + dw > destinationWidth ||
        dy + dh > destinationHeight)
        return;
    if (dw == sw && dh == sh) {
        for (int y = 0; y < dh; ++y)
            std::memcpy(destination + (std::size_t(dy + y) * destinationWidth + dx) * 4,
                        source + (std::size_t(sy + y) * sourceWidth + sx) * 4, std::size_t(dw) * 4);
        return;
    }
    AxisWeights wx = Weights(sw, dw);
    AxisWeights wy = Weights(sh, dh);
    const std::uint64_t total = std::uint64_t(sw) * sh;
    std::vector<std::uint64_t> acc(std::size_t(dw) * 3);
    std::vector<std::uint32_t> row(std::size_t(dw) * 3);
    for (int y = 0; y < dh; ++y) {
        std::fill(acc.begin(), acc.end(), 0);
        for (int j = wy.offset[y]; j < wy.offset[y + 1]; ++j) {
            int sRow = sy + wy.first[y] + (j - wy.offset[y]);
            const std::uint8_t* in = source + (std::size_t(sRow) * sourceWidth + sx) * 4;
            for (int x = 0; x < dw; ++x) {
                std::uint32_t b = 0, g = 0, r = 0;
                const std::uint8_t* p = in + std::size_t(wx.first[x]) * 4;
                for (int i = wx.offset[x]; i < wx.offset[x + 1]; ++i, p += 4) {
                    std::uint32_t o = wx.overlap[i];
                    b += p[0] * o;
                    g += p[1] * o;
                    r += p[2] * o;
                }
                row[x * 3] = b;
                row[x * 3 + 1] = g;
                row[x * 3 + 2] = r;
            }
            std::uint64_t o = wy.overlap[j];
            for (std::size_t k = 0; k < acc.size(); ++k)
                acc[k] += row[k] * o;
        }
        std::uint8_t* out = destination + (std::size_t(dy + y) * destinationWidth + dx) * 4;
        for (int x = 0; x < dw; ++x)
            for (int k = 0; k < 3; ++k)
                out[x * 4 + k] = static_cast<std::uint8_t>((acc[x * 3 + k] + total / 2) / total);
    }
}

FrameCompositor::FrameCompositor(int clientWidth, int clientHeight, int frameWidth, int frameHeight)
    : clientWidth_(clientWidth), clientHeight_(clientHeight), frameWidth_(std::max(frameWidth, 0)),
      frameHeight_(std::max(frameHeight, 0))
{
}

int FrameCompositor::Open()
{
    std::size_t bytes = std::size_t(frameWidth_) * frameHeight_ * 4;
    sourceBuffer_.assign(bytes, 0);
    targetBuffer_.assign(bytes, 0);
    outputBuffer_.assign(bytes, 0);
    std::lock_guard guard(displayLock_);
    displayBuffer_.assign(bytes, 0);
    open_ = true;
    return 1;
}

int FrameCompositor::Close()
{
    open_ = false;
    sourceBuffer_ = {};
    targetBuffer_ = {};
    outputBuffer_ = {};
    std::lock_guard guard(displayLock_);
    displayBuffer_ = {};
    return 1;
}

void FrameCompositor::RenderPhoto(const codec::Photo* photo, const codec::Photo* mask, Rect rect,
                                  std::uint8_t* destination)
{
    const int W = frameWidth_;
    const int H = frameHeight_;
    if (destination == nullptr || W <= 0 || H <= 0)
        return;
    PhotoView view;
    if (photo != nullptr && OpenPhoto(*photo, view)) {
        const int w = view.width;
        const int h = view.height;
        int sx = rect.left;
        int sw = rect.right - rect.left;
        int sh = rect.bottom - rect.top;
        int sy = h - rect.bottom;
        if (rect.left == rect.right && rect.top == rect.bottom) {
            if (std::int64_t(H) * w <= std::int64_t(W) * h) {
                sh = h;
                sy = 0;
                sw = static_cast<int>(std::int64_t(W) * h / H);
                sx = (w - sw) / 2;
            } else {
                sw = w;
                sx = 0;
                sh = static_cast<int>(std::int64_t(H) * w / W);
                sy = (h - sh) / 2;
            }
        }
        // A rectangle that is empty or inside out in one direction has nothing to draw.
        if (sw > 0 && sh > 0 && sw <= 4 * kMaxSide && sh <= 4 * kMaxSide) {
            const int iw = sw <= W ? sw : W;
            const int ih = sw <= W ? sh : H;
            if (ih > 0 && ih <= kMaxSide) {
                std::vector<std::uint8_t> intermediate(std::size_t(iw) * ih * 4, 0);
                int dx = 0, dy = 0, dw = iw, dh = ih;
                const double fx = double(iw) / sw;
                const double fy = double(ih) / sh;
                if (sx < 0) {
                    dx = static_cast<int>(-sx * fx);
                    sw = sw + sx;
                    sx = 0;
                    dw = static_cast<int>(sw * fx);
                }
                if (sx + sw > w) {
                    sw = w - sx;
                    dw = static_cast<int>(sw * fx);
                }
                if (sy < 0) {
                    sh = sh + sy;
                    sy = 0;
                    dh = static_cast<int>(sh * fy);
                }
                if (sy + sh > h) {
                    dy = static_cast<int>((sy + sh - h) * fy);
                    sh = h - sy;
                    dh = static_cast<int>(sh * fy);
                }
                // The intermediate is addressed from the top (dy) and stored bottom row first.
                dw = std::min(dw, iw - dx);
                dh = std::min(dh, ih - dy);
                AreaStretch(intermediate.data(), iw, ih, dx, ih - dy - dh, dw, dh, view.rows, w, h, sx, sy,
                            sw, sh);
                std::memset(destination, 0, std::size_t(W) * H * 4);
                BilinearStretch(destination, W, H, intermediate.data(), 32, iw, ih);
            }
        }
    }
    PhotoView maskView;
    if (mask != nullptr && OpenPhoto(*mask, maskView)) {
        std::vector<std::uint8_t> stretched(std::size_t(W) * H * 4);
        if (BilinearStretch(stretched.data(), W, H, maskView.rows, 32, maskView.width, maskView.height))
            ApplyMask(destination, stretched.data(), W * H);
    }
}

void FrameCompositor::PrepareFromScreen(const codec::Photo* photo, const codec::Photo* mask, Rect rect)
{
    if (!IsOpen())
        return;
    {
        std::lock_guard guard(displayLock_);
        std::copy(displayBuffer_.begin(), displayBuffer_.end(), sourceBuffer_.begin());
    }
    RenderPhoto(photo, mask, rect, targetBuffer_.data());
}

void FrameCompositor::PreparePair(const codec::Photo* photo1, const codec::Photo* mask1, Rect rect1,
                                  const codec::Photo* photo2, const codec::Photo* mask2, Rect rect2)
{
    if (!IsOpen())
        return;
    RenderPhoto(photo1, mask1, rect1, sourceBuffer_.data());
    RenderPhoto(photo2, mask2, rect2, targetBuffer_.data());
}

effects::EffectParams FrameCompositor::PictureBlock(int num, int den)
{
    effects::EffectParams block{};
    block.size = 64;
    block.source = sourceBuffer_.data();
    block.target = targetBuffer_.data();
    block.output = outputBuffer_.data();
    block.width = frameWidth_;
    block.height = frameHeight_;
    block.progressNum = num;
    block.progressDen = den;
    return block;
}

int FrameCompositor::BeginTransition(int effect)
{
    effects::EffectInfo info{};
    info.mask = 3;
    registry_.GetInfo(effect, effects::kPictureTable, &info);
    if (!IsOpen())
        return 1;
    effects::EffectParams block = PictureBlock(0, 100);
    registry_.RunPicture(effect, effects::EffectInit, &block);
    return 1;
}

void FrameCompositor::RenderTransitionFrame(int effect, platform::FramePresenter& window, int num, int den)
{
    if (IsOpen() && den != 0) {
        effects::EffectParams block = PictureBlock(num, den);
        registry_.RunPicture(effect, effects::EffectRender, &block);
    }
    Present(window, (clientWidth_ - frameWidth_) / 2, (clientHeight_ - frameHeight_) / 2, true);
}

int FrameCompositor::EndTransition(int effect)
{
    if (effect < 0)
        return 0;
    registry_.RunPicture(effect, effects::EffectRelease, nullptr);
    return 1;
}

void FrameCompositor::CommitTarget()
{
    if (!IsOpen())
        return;
    std::copy(targetBuffer_.begin(), targetBuffer_.end(), outputBuffer_.begin());
    std::lock_guard guard(displayLock_);
    std::copy(outputBuffer_.begin(), outputBuffer_.end(), displayBuffer_.begin());
}

effects::TextEffectParams FrameCompositor::TextBlock(const records::Glyph* glyphs, int glyphCount,
                                                     records::TextRecord* text, int num, int den)
{
    effects::TextEffectParams block{};
    block.size = 40;
    // Captions are drawn into the output picture, which only the playback thread touches, so no text
    // effect runs under the display lock; PublishOutput hands the finished frame to the display.
    block.dcBits = outputBuffer_.empty() ? nullptr : outputBuffer_.data();
    block.text = text;
    block.glyphs = glyphs;
    block.glyphCount = glyphCount;
    block.width = frameWidth_;
    block.height = frameHeight_;
    block.progressNum = num;
    block.progressDen = den;
    return block;
}

int FrameCompositor::BeginCaption(int effect, const records::Glyph* glyphs, int glyphCount,
                                  records::TextRecord* text)
{
    if (effect < 0)
        return 0;
    effects::EffectInfo info{};
    info.mask = 3;
    registry_.GetInfo(effect, effects::kTextTable, &info);
    registry_.RunText(effect, effects::EffectInit, TextBlock(glyphs, glyphCount, text, 0, 100));
    return 1;
}

void FrameCompositor::RenderCaptionFrame(int effect, const records::Glyph* glyphs, int glyphCount,
                                         records::TextRecord* text, int num, int den)
{
    if (den == 0 || !IsOpen())
        return;
    registry_.RunText(effect, effects::EffectRender, TextBlock(glyphs, glyphCount, text, num, den));
}

void FrameCompositor::RestoreTarget()
{
    if (IsOpen())
        std::copy(targetBuffer_.begin(), targetBuffer_.end(), outputBuffer_.begin());
}

void FrameCompositor::PublishOutput(platform::FramePresenter& window)
{
    if (!IsOpen())
        return;
    {
        std::lock_guard guard(displayLock_);
        std::copy(outputBuffer_.begin(), outputBuffer_.end(), displayBuffer_.begin());
    }
    PresentDisplay(window);
}

int FrameCompositor::EndCaption(int effect, records::TextRecord* text)
{
    if (effect < 0)
        return 0;
    effects::TextEffectParams block{};
    block.size = 40;
    block.text = text;
    registry_.RunText(effect, effects::EffectRelease, block);
    return 1;
}

void FrameCompositor::Present(platform::FramePresenter& window, int x, int y, bool fromOutput)
{
    if (!IsOpen())
        return;
    if (fromOutput) {
        window.Present(outputBuffer_.data(), frameWidth_, frameHeight_, x, y);
        return;
    }
    std::lock_guard guard(displayLock_);
    if (!displayBuffer_.empty())
        window.Present(displayBuffer_.data(), frameWidth_, frameHeight_, x, y);
}

void FrameCompositor::PresentDisplay(platform::FramePresenter& window)
{
    Present(window, (clientWidth_ - frameWidth_) / 2, (clientHeight_ - frameHeight_) / 2, false);
}

std::vector<std::uint8_t> FrameCompositor::DisplayCopy()
{
    std::lock_guard guard(displayLock_);
    return displayBuffer_;
}

} // namespace lumenar::playback
