#pragma once

#include "base/Mutex.h"
#include "film/Film.h"
#include "platform/Sync.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace lumenar::codec {
class Photo;
}

namespace lumenar::playback {

/// The state that the playback thread, the photo loader thread and the film opener share. Flags are
/// atomic (one writer at a time, polled by the others); the photo pointers and the cache behind them
/// are guarded by `cacheLock`.
struct PlaybackState
{
    /// The film being shown; not owned. The opener appends items while playback reads them, so every
    /// access takes `filmLock`.
    film::Film* film = nullptr;
    std::mutex filmLock;

    std::atomic<std::int32_t> loaderRunning{1};
    std::atomic<std::int32_t> running{1};
    std::atomic<std::int32_t> nextReady{0};
    std::atomic<std::int32_t> nextIndex{0};
    /// The number of the item the photo loader last finished an attempt on, loaded or not: a driver
    /// that moves the clock itself waits for it before letting the next step fall due.
    std::atomic<std::int32_t> attemptedIndex{0};
    std::atomic<std::int32_t> stepRequested{0};
    /// Never set by anything: playback ends after the last item. The branches that use it stay.
    std::atomic<std::int32_t> repeat{0};
    /// The number of the item on screen (the sequencer's `currentItem`), for the loader.
    std::atomic<std::int32_t> currentNumber{0};

    platform::AutoResetEvent photoReady;    ///< A load attempt has ended, successful or not.
    platform::AutoResetEvent itemAvailable; ///< The opener has made one more item's data available.
    platform::AutoResetEvent stepDone;      ///< The sequencer has finished one step.

    /// Serialises loading into the photo cache against rotating it.
    base::Mutex cacheLock;
    codec::Photo* currentPhoto = nullptr;
    codec::Photo* nextPhoto = nullptr;
    codec::Photo* currentMask = nullptr;
    codec::Photo* nextMask = nullptr;

    /// Closed by the sequencer for the length of a transition and its captions.
    platform::Gate loaderGate;

    /// A copy of item `number` taken under `filmLock`.
    film::FilmItem Item(std::int32_t number)
    {
        std::lock_guard guard(filmLock);
        return film ? film->GetItem(number) : film::FilmItem{};
    }
    std::int32_t ItemCount()
    {
        std::lock_guard guard(filmLock);
        return film ? film->ItemCount() : -1;
    }
};

} // namespace lumenar::playback
