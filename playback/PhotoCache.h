#pragma once

#include "base/Mutex.h"
#include "codec/PhotoDecoder.h"

#include "film/Film.h"
#include "playback/Rect.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace lumenar::codec {
class Photo;
}

namespace lumenar::playback {

/// The key codes the still viewer answers (the classic virtual-key values the player window passes on).
inline constexpr int kViewerKeyLeft = 0x25;
inline constexpr int kViewerKeyUp = 0x26;
inline constexpr int kViewerKeyRight = 0x27;
inline constexpr int kViewerKeyDown = 0x28;
inline constexpr int kViewerKeyPlus = 0x6B;  ///< Keypad plus.
inline constexpr int kViewerKeyMinus = 0x6D; ///< Keypad minus.

/// How far one arrow key scrolls the still viewer, in pixels.
inline constexpr std::int32_t kViewerScrollStep = 25;
/// Zooming in is refused once the zoomed picture takes more than this (at 4 bytes per pixel).
inline constexpr std::int64_t kViewerMaxZoomBytes = 16 * 1024 * 1024;

/// The still viewer's pan and zoom state. Its pictures are its own: playback never loads a photo into
/// them, so they stay 1 x 1 and the keys in practice only ask for a repaint.
struct ViewerState
{
    std::string fileName;
    Rect frame;  ///< The frame rectangle inside the player window.
    Rect window; ///< The player window's rectangle.
    std::int32_t scrollX = 0;
    std::int32_t scrollY = 0;
    std::int32_t viewedWidth = 1; ///< The zoomed picture's size.
    std::int32_t viewedHeight = 1;
    std::int32_t pictureWidth = 1; ///< The picture's own size.
    std::int32_t pictureHeight = 1;
    std::int32_t zoomCount = 0;
    bool busy = false;     ///< A key is being handled; keys arriving meanwhile are dropped.
    std::int32_t step = 4; ///< −1 for a viewer cache (mode non-zero), 4 for playback.
    bool redraw = false;
};

/// What decoding one item's photo and mask met, for the loader to report once it has left `cacheLock`.
struct LoadReports
{
    codec::DecodeReport photo;
    codec::DecodeReport mask;
};

/// The decoded photos of playback: three photo slots (previous, current, next) and three mask slots,
/// owned here, so that at most three photos and three masks are alive at any time. The raw pointers
/// handed out stay valid until the slot is released by a later LoadNext or Rotate, or the cache dies.
/// LoadNext (loader thread) and Rotate (playback thread) are called under the shared `cacheLock`.
class PhotoCache
{
public:
    /// An empty cache; `mode` is 0 for playback.
    explicit PhotoCache(std::int32_t mode);
    ~PhotoCache();
    PhotoCache(const PhotoCache&) = delete;
    PhotoCache& operator=(const PhotoCache&) = delete;

    /// Stores the item (not owned) and the rectangles for the viewer. Returns 1.
    int Init(const film::FilmItem* item, const Rect& frame, const Rect& window);
    /// Names the lock LoadNext and Rotate must be called under, so that they can check it (debug and
    /// sanitizer builds). Without one nothing is checked (a cache used by one thread alone).
    void SetGuard(const base::Mutex* guard) { guard_ = guard; }

    /// Decodes the next item's photo and mask into the next slots. Returns 1 and writes `*outPhoto`
    /// (and `*outMask`: the mask, or null when `maskRef` is "0" or cannot be decoded) on success; returns
    /// 0 and writes nothing when the photo cannot be decoded. Loader thread, under `cacheLock`.
    /// What each decode met goes into `reports` when given.
    int LoadNext(std::string_view photoRef, std::string_view maskRef, std::int32_t width, std::int32_t height,
                 codec::Photo** outPhoto, codec::Photo** outMask, LoadReports* reports = nullptr);

    /// Moves the slots on by one item: the previous photo (and with it the previous mask) is released,
    /// current becomes previous, next becomes current, next is emptied. Writes the new current photo and
    /// mask. Playback thread, under `cacheLock`.
    void Rotate(const film::FilmItem* item, codec::Photo** outPhoto, codec::Photo** outMask);

    /// Handles one still-viewer key (arrows scroll, keypad plus and minus zoom). Returns true when the
    /// player window should be repainted (without erasing); false for other keys or while busy.
    /// Window thread only.
    bool HandleViewerKey(int key);

    /// Gives the viewer a picture of this size instead of its 1 x 1 one; false (nothing changes) for a
    /// size below 1 pixel or too large to hold. Nothing in playback calls it.
    bool SetViewerPicture(std::int32_t width, std::int32_t height);

    /// The construction argument: 0 for playback.
    std::int32_t Mode() const { return mode_; }
    const ViewerState& Viewer() const { return viewer_; }
    const film::FilmItem* Item() const { return item_; }
    /// How many photo and mask slots hold a photo (0 to 6). Any thread holding `cacheLock`.
    int LiveSlots() const;

private:
    void ClampScroll();

    const film::FilmItem* item_ = nullptr;
    const base::Mutex* guard_ = nullptr;
    std::int32_t mode_ = 0;
    std::unique_ptr<codec::Photo> currentPhoto_;
    std::unique_ptr<codec::Photo> previousPhoto_;
    std::unique_ptr<codec::Photo> nextPhoto_;
    std::unique_ptr<codec::Photo> currentMask_;
    std::unique_ptr<codec::Photo> previousMask_;
    std::unique_ptr<codec::Photo> nextMask_;
    ViewerState viewer_;
};

} // namespace lumenar::playback
