#include "playback/ClipPlayer.h"

#include "codec/Photo.h"

namespace lumenar::playback {

ClipPlayer::ClipPlayer() = default;
ClipPlayer::~ClipPlayer() = default;

int ClipPlayer::LoadClip(std::string_view /*clipRef*/, std::string_view stillRef, std::int32_t /*width*/,
                         std::int32_t /*height*/, codec::Photo** outPhoto)
{
    // The still of a clip that was loaded but never entered is simply replaced.
    firstFrame_ = std::make_unique<codec::Photo>();
    if (codec::DecodePhoto(*firstFrame_, stillRef) == 0) {
        firstFrame_.reset();
        *outPhoto = nullptr;
        return 0;
    }
    *outPhoto = firstFrame_.get();
    return 1;
}

void ClipPlayer::StartClip(const film::FilmItem* item, codec::Photo** outPhoto,
                           std::int32_t /*transitionResult*/)
{
    item_ = item;
    // The previously shown still is released here, under the cache lock, once nothing shows it.
    shownFrame_ = std::move(firstFrame_);
    *outPhoto = shownFrame_.get();
}

void ClipPlayer::StopClip(std::int32_t /*closeNext*/)
{
}

} // namespace lumenar::playback
