#include "platform/DisplayAwake.h"

#include <SDL.h>

#include <atomic>

namespace lumenar::platform {

namespace {
std::atomic<std::uint32_t> lastFlags{0};
}

void KeepDisplayAwake(std::uint32_t flags)
{
    // The screen saver switch exists only while SDL's video subsystem runs (a window is open).
    if (SDL_WasInit(SDL_INIT_VIDEO) == 0)
        return;
    if (flags & kDisplayRequired)
        SDL_DisableScreenSaver();
    else if (flags & kContinuous)
        SDL_EnableScreenSaver();
    lastFlags.store(flags);
}

std::uint32_t LastDisplayAwakeFlags()
{
    return lastFlags.load();
}

} // namespace lumenar::platform
