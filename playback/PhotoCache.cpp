#include "playback/PhotoCache.h"

#include "base/Assert.h"
#include "base/Checked.h"
#include "codec/Photo.h"

#include <algorithm>
#include <climits>
#include <optional>

namespace lumenar::playback {

namespace {

/// Bytes of a 32-bit picture of this size; empty when the count does not fit a signed 32-bit size,
/// which is where making such a picture fails.
std::optional<std::int64_t> PictureBytes(std::int32_t width, std::int32_t height)
{
    const auto bytes = base::CheckedMul<std::int64_t>(std::int64_t{width} * height, 4);
    if (!bytes || *bytes > INT32_MAX)
        return std::nullopt;
    return bytes;
}

} // namespace

PhotoCache::PhotoCache(std::int32_t mode) : mode_(mode)
{
    viewer_.step = mode != 0 ? -1 : 4;
}

// The slots are unique_ptrs: destruction releases all six.
PhotoCache::~PhotoCache() = default;

int PhotoCache::Init(const film::FilmItem* item, const Rect& frame, const Rect& window)
{
    item_ = item;
    viewer_.frame = frame;
    viewer_.window = window;
    return 1;
}

int PhotoCache::LoadNext(std::string_view photoRef, std::string_view maskRef, std::int32_t /*width*/,
                         std::int32_t /*height*/, codec::Photo** outPhoto, codec::Photo** outMask,
                         LoadReports* reports)
{
    LUM_ASSERT(guard_ == nullptr || guard_->HeldByThisThread(), "LoadNext without the cache lock");
    // The item's size only ever fed a fitted rectangle that nothing used, so it is not computed.
    nextPhoto_.reset();
    nextMask_.reset();

    nextPhoto_ = std::make_unique<codec::Photo>();
    if (codec::DecodePhoto(*nextPhoto_, photoRef, {}, reports ? &reports->photo : nullptr) == 0) {
        // The caller's next pointer keeps pointing at the photo the last rotation made current.
        nextPhoto_.reset();
        return 0;
    }
    *outPhoto = nextPhoto_.get();

    if (maskRef == "0") {
        *outMask = nullptr;
        return 1;
    }
    nextMask_ = std::make_unique<codec::Photo>();
    if (codec::DecodePhoto(*nextMask_, maskRef, {}, reports ? &reports->mask : nullptr) == 0)
        nextMask_.reset(); // A missing mask is never an error: the photo shows unmasked.
    *outMask = nextMask_.get();
    return 1;
}

void PhotoCache::Rotate(const film::FilmItem* item, codec::Photo** outPhoto, codec::Photo** outMask)
{
    LUM_ASSERT(guard_ == nullptr || guard_->HeldByThisThread(), "Rotate without the cache lock");
    item_ = item;
    // The slots own their photos, so a mask left in the previous slot without its photo is released
    // by the move below rather than forgotten.
    if (previousPhoto_) {
        previousPhoto_.reset();
        previousMask_.reset();
    }
    previousPhoto_ = std::move(currentPhoto_);
    currentPhoto_ = std::move(nextPhoto_);
    previousMask_ = std::move(currentMask_);
    currentMask_ = std::move(nextMask_);
    nextPhoto_.reset();
    nextMask_.reset();
    *outPhoto = currentPhoto_.get();
    *outMask = currentMask_.get();
}

int PhotoCache::LiveSlots() const
{
    const std::unique_ptr<codec::Photo>* slots[] = {&currentPhoto_, &previousPhoto_, &nextPhoto_,
                                                    &currentMask_,  &previousMask_,  &nextMask_};
    return static_cast<int>(
        std::count_if(std::begin(slots), std::end(slots), [](auto* slot) { return *slot != nullptr; }));
}

bool PhotoCache::SetViewerPicture(std::int32_t width, std::int32_t height)
{
    if (width < 1 || height < 1 || !PictureBytes(width, height))
        return false;
    viewer_.pictureWidth = viewer_.viewedWidth = width;
    viewer_.pictureHeight = viewer_.viewedHeight = height;
    viewer_.scrollX = viewer_.scrollY = 0;
    viewer_.zoomCount = 0;
    return true;
}

void PhotoCache::ClampScroll()
{
    const std::int32_t maxX = std::max(0, viewer_.viewedWidth - viewer_.frame.Width());
    const std::int32_t maxY = std::max(0, viewer_.viewedHeight - viewer_.frame.Height());
    viewer_.scrollX = std::clamp(viewer_.scrollX, 0, maxX);
    viewer_.scrollY = std::clamp(viewer_.scrollY, 0, maxY);
}

bool PhotoCache::HandleViewerKey(int key)
{
    if (viewer_.busy)
        return false;
    viewer_.busy = true;
    bool handled = true;
    const bool wider = viewer_.viewedWidth > viewer_.frame.Width();
    const bool taller = viewer_.viewedHeight > viewer_.frame.Height();
    switch (key) {
    case kViewerKeyLeft:
        if (wider)
            viewer_.scrollX -= kViewerScrollStep;
        break;
    case kViewerKeyRight:
        if (wider)
            viewer_.scrollX += kViewerScrollStep;
        break;
    case kViewerKeyUp:
        if (taller)
            viewer_.scrollY -= kViewerScrollStep;
        break;
    case kViewerKeyDown:
        if (taller)
            viewer_.scrollY += kViewerScrollStep;
        break;
    case kViewerKeyPlus: {
        const auto bytes = PictureBytes(viewer_.viewedWidth, viewer_.viewedHeight);
        if (!bytes || *bytes > kViewerMaxZoomBytes)
            break; // Refused: the picture on screen stays as it is, and still repaints.
        const auto doubledWidth = base::CheckedMul<std::int32_t>(viewer_.viewedWidth, 2);
        const auto doubledHeight = base::CheckedMul<std::int32_t>(viewer_.viewedHeight, 2);
        if (!doubledWidth || !doubledHeight || !PictureBytes(*doubledWidth, *doubledHeight))
            break; // The doubled picture cannot be made: the zoom is undone.
        viewer_.viewedWidth = *doubledWidth;
        viewer_.viewedHeight = *doubledHeight;
        viewer_.scrollX *= 2;
        viewer_.scrollY *= 2;
        ++viewer_.zoomCount;
        break;
    }
    case kViewerKeyMinus:
        viewer_.viewedWidth = std::max(1, viewer_.viewedWidth / 2);
        viewer_.viewedHeight = std::max(1, viewer_.viewedHeight / 2);
        viewer_.scrollX /= 2;
        viewer_.scrollY /= 2;
        --viewer_.zoomCount;
        break;
    default:
        handled = false;
        break;
    }
    if (handled) {
        ClampScroll();
        viewer_.redraw = true;
    }
    viewer_.busy = false;
    return handled;
}

} // namespace lumenar::playback
