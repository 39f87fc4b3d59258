#pragma once

#include "film/FilmReceiver.h"
#include "platform/Window.h"
#include "playback/PlayerWindow.h"

namespace lumenar::playback {

/// What the film receiver needs from a created player window: its item events, the lock around its
/// film, and its client area for the progress bar (its size as it is now). The result points into
/// `player` and `host`, which must outlive its use. Window thread.
film::ItemHandOver ItemHandOverOf(PlayerWindow& player, platform::WindowHost& host);

} // namespace lumenar::playback
