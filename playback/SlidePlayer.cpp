#include "playback/SlidePlayer.h"

#include "platform/ReportBox.h"
#include "platform/StringTable.h"

namespace lumenar::playback {

namespace {
/// The code of a show whose viewer is not installed.
constexpr std::int32_t kViewerMissing = -1;
} // namespace

int SlidePlayer::SetItem(const film::FilmItem* item)
{
    item_ = item;
    return 1;
}

std::int32_t SlidePlayer::RunShow()
{
    return kViewerMissing;
}

int SlidePlayer::StartShow(const film::FilmItem* item, codec::Photo** outPhoto)
{
    item_ = item;
    if (RunShow() == kViewerMissing && !reported_) {
        reported_ = true;
        platform::ReportBox(nullptr, platform::kBoxIconError, platform::kStrError, "Error",
                            platform::kStrPowerPointViewerMissing, "PowerPoint Viewer missed");
    }
    *outPhoto = nullptr;
    return 0;
}

} // namespace lumenar::playback
