#pragma once

#include "platform/MessageBox.h"
#include "playback/ClipPlayer.h"
#include "playback/PhotoCache.h"
#include "playback/PlaybackState.h"

#include <chrono>
#include <thread>

namespace lumenar::playback {

/// How long the loader sleeps between polls.
inline constexpr std::chrono::milliseconds kLoaderPoll{100};

/// The photo loader loop: while `state.loaderRunning` is set, decodes the item after the one on screen
/// (`state.currentNumber` + 1) into the cache once the opener has signalled `itemAvailable` and the
/// previous load has been taken (`nextReady` clear), then sets `nextReady` (on success) and signals
/// `photoReady` (always). Polls every 100 ms. Returns when stopped, or on its own when the candidate
/// lies past the end of the film and `repeat` is clear. Passes `state.loaderGate` at the top of every
/// pass and before it takes `cacheLock`, never while holding it. Loader thread only.
void RunPhotoLoader(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips);

/// The loader thread ("PhotoThread[2]", idle priority). Owns nothing but the thread; the state, cache,
/// clip player and `reports` (where the thread's messages go; null: the default sink) must outlive it.
/// Its destructor stops it.
class PhotoLoaderThread
{
public:
    PhotoLoaderThread(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips,
                      platform::MessageSink* reports = nullptr);
    ~PhotoLoaderThread();
    PhotoLoaderThread(const PhotoLoaderThread&) = delete;
    PhotoLoaderThread& operator=(const PhotoLoaderThread&) = delete;

    /// Starts the loop on a new thread; does nothing when it was started before.
    void Start();

    /// Clears `loaderRunning`, waits for the thread (at most one poll plus one decode) and writes
    /// "PhotoThread[2] has finished ---- " to the debug trace. Does nothing when not started or already
    /// stopped. The loader gate must be open (a closed gate holds the loader, and this waits for it).
    /// Any thread but the loader's.
    void Stop();

    /// True when the loop ended (on its own or stopped) within `timeoutMs`. Only the first call after
    /// the end sees it: the signal is consumed. Any thread.
    bool WaitEnded(std::uint32_t timeoutMs) { return ended_.Wait(timeoutMs); }

private:
    PlaybackState& state_;
    PhotoCache& cache_;
    ClipPlayer& clips_;
    platform::MessageSink* reports_;
    platform::AutoResetEvent ended_;
    std::jthread thread_;
};

} // namespace lumenar::playback
