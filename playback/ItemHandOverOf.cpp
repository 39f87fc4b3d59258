#include "playback/ItemHandOverOf.h"

namespace lumenar::playback {

film::ItemHandOver ItemHandOverOf(PlayerWindow& player, platform::WindowHost& host)
{
    const platform::WindowRect client = host.ScreenRect(player.Window());
    PlaybackState& state = player.State();
    return {.itemAvailable = &state.itemAvailable,
            .stepDone = &state.stepDone,
            .filmLock = &state.filmLock,
            .presenter = &host.Presenter(player.Window()),
            .clientWidth = client.right - client.left,
            .clientHeight = client.bottom - client.top,
            .owner = nullptr};
}

} // namespace lumenar::playback
