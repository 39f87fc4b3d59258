#pragma once

#include "film/Film.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

namespace lumenar::codec {
class Photo;
}

namespace lumenar::playback {

/// Whether media clips and PowerPoint shows have their full players. They do not yet: a clip shows its
/// first-frame still for the item's time, and a PowerPoint show reports the viewer missing.
inline constexpr bool kFullPlayersBuilt = false;
/// One line saying what the clip and show players do in this build (for `--version` and the README).
inline constexpr std::string_view kPlayersSummary =
    "media clips: first-frame still only; PowerPoint shows: viewer missing";

/// Plays the media-clip items. This build has no media graph service, so a clip is shown as its
/// first-frame still for the item's display time: nothing plays and IsPlaying is always 0.
/// LoadClip runs on the loader thread and StartClip and StopClip on the playback thread, all under the
/// shared `cacheLock`; IsPlaying may be read from any thread.
class ClipPlayer
{
public:
    ClipPlayer();
    ~ClipPlayer();
    ClipPlayer(const ClipPlayer&) = delete;
    ClipPlayer& operator=(const ClipPlayer&) = delete;

    /// Decodes the first-frame still `stillRef` for the next clip item. Returns 1 and points `*outPhoto`
    /// at the still (owned here) on success; returns 0 and writes null when it cannot be decoded (the
    /// transition into the clip is then skipped). `clipRef` is not opened: there is no clip player.
    int LoadClip(std::string_view clipRef, std::string_view stillRef, std::int32_t width, std::int32_t height,
                 codec::Photo** outPhoto);

    /// Enters the clip item: the first-frame still that LoadClip decoded becomes the picture on screen
    /// (`*outPhoto`, null when there was none), whatever `transitionResult` was.
    void StartClip(const film::FilmItem* item, codec::Photo** outPhoto, std::int32_t transitionResult);

    /// Ends the clip on screen. Nothing to do without a clip player.
    void StopClip(std::int32_t closeNext);

    /// 1 while a clip is playing; always 0 here, so the item lasts its own display time.
    std::int32_t IsPlaying() const { return 0; }

private:
    const film::FilmItem* item_ = nullptr;
    // Two stills are kept so that the still on screen stays alive while the next clip's still is
    // decoded, as the photo cache keeps the photo on screen.
    std::unique_ptr<codec::Photo> firstFrame_;
    std::unique_ptr<codec::Photo> shownFrame_;
};

} // namespace lumenar::playback
