#pragma once

#include "effects/EffectRegistry.h"
#include "platform/Presenter.h"
#include "playback/Rect.h"
#include "records/Glyph.h"
#include "records/TextRecord.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace lumenar::codec {
class Photo;
}

namespace lumenar::playback {

/// The largest rectangle of the design's aspect ratio inside the client area, centred.
Rect FitRect(int designWidth, int designHeight, int clientWidth, int clientHeight);

/// How the frame takes a client area larger than the design size.
enum class FrameFit
{
    Design, ///< Keeps the design size, centred: the control's own way.
    Fill,   ///< Grows to the largest design-shaped rectangle: a host that wants the whole window.
};

/// Where the frame lies in a client area: the design size (800 × 600 when `large`, else 640 × 480)
/// centred when it fits with room to spare in both directions (and `fit` is Design), else FitRect made
/// even-sized.
Rect FrameGeometry(int clientWidth, int clientHeight, bool large, FrameFit fit = FrameFit::Design);

/// Resamples a 32- or 24-bit bottom-up picture of sw × sh onto `destination` (dw × dh, 32-bit, rows
/// of dw × 4 bytes) with the integer bilinear filter. Compatibility: no rounding term, every step
/// truncates, which darkens by a fraction of a level. Returns 0 for another bit depth or bad sizes.
int BilinearStretch(std::uint8_t* destination, int dw, int dh, const std::uint8_t* source, int bitCount,
                    int sw, int sh);

/// Darkens `pixels` by the mask: each colour drops by 255 − the mask's blue byte, stopping at 0.
void ApplyMask(std::uint8_t* pixels, const std::uint8_t* maskPixels, int count);

/// Shrinks (or copies, or enlarges) the rectangle (sx, sy, sw, sh) of a 32-bit bottom-up picture
/// (rows counted from the bottom) into (dx, dy, dw, dh) of another, rows counted from the bottom too,
/// by averaging the area each destination pixel covers. Stands in for the system's halftone stretch.
void AreaStretch(std::uint8_t* destination, int destinationWidth, int destinationHeight, int dx, int dy,
                 int dw, int dh, const std::uint8_t* source, int sourceWidth, int sourceHeight, int sx,
                 int sy, int sw, int sh);

/// Owns every picture playback draws with, fits photos into the frame and runs the effects on them.
/// Everything runs on the playback thread except PresentDisplay, which the window's paint handler
/// also calls.
class FrameCompositor
{
public:
    FrameCompositor(int clientWidth, int clientHeight, int frameWidth, int frameHeight);

    /// Makes the four pictures: source and target black, display black. Returns 1.
    int Open();
    int Close();
    bool IsOpen() const { return open_.load(); }

    /// Fits `photo` (the part `rect` in photo pixels, or the whole photo undistorted when `rect` is
    /// empty) into `destination`, a frame-sized picture, then darkens it through `mask`.
    void RenderPhoto(const codec::Photo* photo, const codec::Photo* mask, Rect rect,
                     std::uint8_t* destination);
    void PrepareFromScreen(const codec::Photo* photo, const codec::Photo* mask, Rect rect);
    void PreparePair(const codec::Photo* photo1, const codec::Photo* mask1, Rect rect1,
                     const codec::Photo* photo2, const codec::Photo* mask2, Rect rect2);

    int BeginTransition(int effect);
    void RenderTransitionFrame(int effect, platform::FramePresenter& window, int num, int den);
    int EndTransition(int effect);
    void CommitTarget();

    /// Caption animation, playback thread only: BeginCaption initialises the caption's text effect on
    /// the output picture; each frame RestoreTarget puts the clean picture back into the output, the
    /// captions are rendered onto it, and PublishOutput copies it into the display (under the display
    /// lock, which no text effect ever runs under) and presents it.
    int BeginCaption(int effect, const records::Glyph* glyphs, int glyphCount, records::TextRecord* text);
    void RenderCaptionFrame(int effect, const records::Glyph* glyphs, int glyphCount,
                            records::TextRecord* text, int num, int den);
    int EndCaption(int effect, records::TextRecord* text);
    void RestoreTarget();
    void PublishOutput(platform::FramePresenter& window);

    void Present(platform::FramePresenter& window, int x, int y, bool fromOutput);
    void PresentDisplay(platform::FramePresenter& window);

    int FrameWidth() const { return frameWidth_; }
    int FrameHeight() const { return frameHeight_; }
    effects::EffectRegistry& Registry() { return registry_; }

    /// The pictures, for tests and the frame dump; empty before Open.
    std::span<const std::uint8_t> Source() const { return sourceBuffer_; }
    std::span<const std::uint8_t> Target() const { return targetBuffer_; }
    std::span<const std::uint8_t> Output() const { return outputBuffer_; }
    /// A copy of the display picture, taken under its lock.
    std::vector<std::uint8_t> DisplayCopy();

private:
    effects::EffectParams PictureBlock(int num, int den);
    effects::TextEffectParams TextBlock(const records::Glyph* glyphs, int glyphCount,
                                        records::TextRecord* text, int num, int den);

    int clientWidth_;
    int clientHeight_;
    int frameWidth_;
    int frameHeight_;
    std::vector<std::uint8_t> sourceBuffer_;
    std::vector<std::uint8_t> targetBuffer_;
    std::vector<std::uint8_t> outputBuffer_;
    // The display picture is drawn by the playback thread and read by the window's paint handler.
    std::mutex displayLock_;
    std::vector<std::uint8_t> displayBuffer_;
    effects::EffectRegistry registry_;
    std::atomic<bool> open_{false};
};

} // namespace lumenar::playback
