#pragma once

#include "film/Film.h"

#include <cstdint>

namespace lumenar::codec {
class Photo;
}

namespace lumenar::playback {

/// Shows the PowerPoint items. This build has no PowerPoint viewer: a show is never run; the first
/// show says "PowerPoint Viewer missed" once and playback goes on with the next item. Playback thread.
class SlidePlayer
{
public:
    /// Stores the item (not owned). Returns 1.
    int SetItem(const film::FilmItem* item);

    /// Runs the show of the stored item. Returns −1: the viewer cannot be found.
    std::int32_t RunShow();

    /// Stores the item, runs the show and sets `*outPhoto` to null (nothing to show in the frame).
    /// Returns 0: no show ran. The first call reports the missing viewer through ReportBox.
    int StartShow(const film::FilmItem* item, codec::Photo** outPhoto);

    const film::FilmItem* Item() const { return item_; }

private:
    const film::FilmItem* item_ = nullptr;
    bool reported_ = false;
};

} // namespace lumenar::playback
