#include "playback/PhotoLoader.h"

#include "platform/DebugTrace.h"
#include "platform/Sync.h"

#include <exception>
#include <string>

namespace lumenar::playback {

namespace {

/// Loads `item` into the cache or the clip player; returns 1 when its pictures are ready. Called with
/// `cacheLock` held.
int LoadCandidate(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips, const film::FilmItem& item)
{
    switch (item.kind) {
    case film::kFilmItemPhoto: {
        const std::string photoRef = film::JoinFilmFile(item.photo);
        const std::string maskRef = film::JoinFilmFile(item.mask);
        return cache.LoadNext(photoRef, maskRef, item.width, item.height, &state.nextPhoto, &state.nextMask);
    }
    case film::kFilmItemClip: {
        const std::string clipRef = film::JoinFilmFile(item.clipFile);
        const std::string stillRef = film::JoinFilmFile(item.clipPicture1);
        return clips.LoadClip(clipRef, stillRef, item.width, item.height, &state.nextPhoto);
    }
    case film::kFilmItemPowerPoint:
        // Nothing to decode: the show runs when the item is entered.
        state.nextPhoto = nullptr;
        return 1;
    default:
        return 0;
    }
}

} // namespace

void RunPhotoLoader(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips)
{
    while (state.loaderRunning.load() != 0) {
        state.loaderGate.Pass();
        if (state.nextReady.load() != 0) {
            std::this_thread::sleep_for(kLoaderPoll);
            continue;
        }
        if (!state.itemAvailable.Wait(0)) {
            std::this_thread::sleep_for(kLoaderPoll);
            continue;
        }
        // The candidate is looked up only now, after the signal: a number read before the sequencer
        // moved on would load the item on screen a second time.
        film::FilmItem candidate = state.Item(state.currentNumber.load() + 1);
        if (candidate.index == -1) {
            if (state.repeat.load() == 0)
                break;
            candidate = state.Item(1);
        }

        state.loaderGate.Pass();
        int result = 0;
        {
            std::lock_guard guard(state.cacheLock);
            result = LoadCandidate(state, cache, clips, candidate);
        }
        if (result == 1) {
            state.nextReady.store(1);
            state.nextIndex.store(candidate.index);
        }
        state.photoReady.Set();
    }
}

PhotoLoaderThread::PhotoLoaderThread(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips)
    : state_(state), cache_(cache), clips_(clips)
{
}

PhotoLoaderThread::~PhotoLoaderThread()
{
    Stop();
}

void PhotoLoaderThread::Start()
{
    if (thread_.joinable())
        return;
    thread_ = std::jthread([this] {
        platform::SetCurrentThreadName("PhotoThread[2]");
        platform::SetCurrentThreadIdlePriority(); // Refused by some systems; the loader runs all the same.
        try {
            RunPhotoLoader(state_, cache_, clips_);
        } catch (const std::exception& error) {
            platform::DebugTrace(std::string("PhotoThread[2] failed: ") + error.what() + "\n");
        }
        ended_.Set();
    });
}

void PhotoLoaderThread::Stop()
{
    if (!thread_.joinable())
        return;
    state_.loaderRunning.store(0);
    thread_.join();
    platform::DebugTrace("PhotoThread[2] has finished ---- \n");
}

} // namespace lumenar::playback
