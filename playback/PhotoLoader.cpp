#include "playback/PhotoLoader.h"

#include "base/Assert.h"
#include "platform/CorruptPhotoPolicy.h"
#include "platform/DebugTrace.h"
#include "platform/ReportBox.h"
#include "platform/StringTable.h"
#include "platform/Sync.h"

#include <exception>
#include <string>

namespace lumenar::playback {

namespace {

/// Loads `item` into the cache or the clip player; returns 1 when its pictures are ready. Called with
/// `cacheLock` held.
int LoadCandidate(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips, const film::FilmItem& item,
                  LoadReports& reports)
{
    LUM_ASSERT(state.cacheLock.HeldByThisThread(), "a candidate is loaded under the cache lock");
    switch (item.kind) {
    case film::kFilmItemPhoto: {
        const std::string photoRef = film::JoinFilmFile(item.photo);
        const std::string maskRef = film::JoinFilmFile(item.mask);
        return cache.LoadNext(photoRef, maskRef, item.width, item.height, &state.nextPhoto, &state.nextMask,
                              &reports);
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

/// Tells the viewer what decoding an item's pictures met: the decoder's notices in boxes of their own,
/// and a photo's refusal in one line naming the item (a mask that cannot be had is never an error: the
/// photo shows unmasked). A picture refused for a corruption the player once ended its process on still
/// does that when a host asked for it.
void ReportDecode(std::int32_t item, const LoadReports& reports)
{
    for (const codec::DecodeReport* report : {&reports.photo, &reports.mask}) {
        for (const std::string& notice : report->notices)
            platform::ReportBox(nullptr, platform::kBoxOk, 0, nullptr, 0, "%s", notice.c_str());
        if (report->fatalCorruption)
            platform::EndProcessIfAskedFor(report->refusal);
    }
    if (!reports.photo.refusal.empty())
        platform::ReportBox(nullptr, platform::kBoxIconWarning, platform::kStrWarning, "Warning", 0,
                            "item %d: the photo is not shown: %s", item, reports.photo.refusal.c_str());
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
        LoadReports reports;
        {
            std::lock_guard guard(state.cacheLock);
            result = LoadCandidate(state, cache, clips, candidate, reports);
        }
        // Reported outside the lock: a report may wait for the viewer.
        ReportDecode(candidate.index, reports);
        if (result == 1) {
            state.nextReady.store(1);
            state.nextIndex.store(candidate.index);
        }
        state.attemptedIndex.store(candidate.index);
        state.photoReady.Set();
    }
}

PhotoLoaderThread::PhotoLoaderThread(PlaybackState& state, PhotoCache& cache, ClipPlayer& clips,
                                     platform::MessageSink* reports)
    : state_(state), cache_(cache), clips_(clips), reports_(reports)
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
        platform::ThreadMessageSink reportsGo(reports_);
        platform::SetCurrentThreadIdlePriority(); // Refused by some systems; the loader runs all the same.
        platform::CatchAll("PhotoThread[2]", [this] { RunPhotoLoader(state_, cache_, clips_); });
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
