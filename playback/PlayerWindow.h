#pragma once

#include "film/Film.h"
#include "platform/Clock.h"
#include "platform/Timer.h"
#include "platform/Window.h"
#include "playback/ClipPlayer.h"
#include "playback/FrameCompositor.h"
#include "playback/PhotoCache.h"
#include "playback/PhotoLoader.h"
#include "playback/PlaybackState.h"
#include "playback/SlidePlayer.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace lumenar::playback {

/// Commands the player posts to its parent window (as kMsgCommand with the id in wParam).
inline constexpr std::uint32_t kCommandPlay = 0x8008;
inline constexpr std::uint32_t kCommandStop = 0x8009;
inline constexpr std::uint32_t kControlButtonId = 0x800a;
/// Private: the worker threads have reports waiting to be shown on the window's thread.
inline constexpr std::uint32_t kMsgPlayerReports = 0x048E;
/// The id the step timer is set with.
inline constexpr std::uint32_t kStepTimerId = 11;

/// A periodic timer at a fixed resolution: Set starts (or restarts) it, Kill stops it and waits for a
/// tick in progress. Any thread.
class MmTimer
{
public:
    MmTimer(platform::TimerService& service, std::uint32_t wantedResolution);
    ~MmTimer();
    std::uint32_t Set(std::uint32_t id, std::uint32_t delay, std::function<void()> callback);
    int Kill();
    std::uint32_t Resolution() const { return resolution_; }

private:
    platform::TimerService& service_;
    std::uint32_t resolution_;
    std::mutex lock_;
    std::unique_ptr<platform::PeriodicTimer> timer_;
    std::uint32_t id_ = 0;
};

/// The player window and its sequencer: shows a film item after item on the playback thread, with the
/// photo loader one item ahead, in a child window over its parent's client area.
class PlayerWindow
{
public:
    PlayerWindow();
    ~PlayerWindow();
    PlayerWindow(const PlayerWindow&) = delete;
    PlayerWindow& operator=(const PlayerWindow&) = delete;

    /// The clock and timers playback runs on, instead of the system's: a ManualClock and ManualTimers let a
    /// driver move time itself (tests; runs that must not depend on the machine's speed). Both must
    /// outlive the window. Before Create.
    void SetTiming(platform::Clock& clock, platform::TimerService& timers);
    /// The shortest time between two frames of a transition or a caption pass; 0 keeps the player's
    /// own pace. A shorter period samples the motion at more progress values (an export at 30 or 60
    /// frames a second). Before Create.
    void SetFramePeriod(std::uint32_t periodMs);
    /// Whether the playback thread is waiting for a step request, none being pending. Any thread.
    bool Idle() const { return idle_.load() && state_.stepRequested.load() == 0; }

    /// How the frame takes a client area larger than 800 × 600 (before Create; Design unless a host
    /// asks for the whole window).
    void SetFrameFit(FrameFit fit) { frameFit_ = fit; }

    /// Makes the window and its parts over `parent`'s client area and starts playback. Returns 1, or
    /// 0 when the window cannot be made. Window thread.
    int Create(platform::WindowHost& host, platform::WindowId parent, film::Film* film, int startNumber,
               bool large);
    void Start();
    /// Ends both threads and the timer. Window thread.
    void Stop();
    void Destroy();

    /// One item forward. Playback thread.
    void Step();
    int PlayTransition(codec::Photo* fromPhoto, codec::Photo* fromMask, Rect fromRect, codec::Photo* toPhoto,
                       codec::Photo* toMask, Rect toRect, int effect, std::uint32_t duration,
                       int outgoingKind);
    int PlayCaptions(codec::Photo* photo, codec::Photo* mask, Rect rect, const film::FilmItem& item);

    PlaybackState& State() { return state_; }
    FrameCompositor* Compositor() { return compositor_.get(); }
    platform::WindowId Window() const { return window_; }
    platform::WindowId Button() const { return button_; }
    Rect Frame() const { return frame_; }
    /// The number of the item on screen.
    std::int32_t CurrentNumber() const { return state_.currentNumber.load(); }
    /// Number of steps that reached their end.
    std::int32_t StepsDone() const { return stepsDone_.load(); }
    /// The film played to its last item and asked its control to stop. Any thread.
    bool ReachedEnd() const { return reachedEnd_.load(); }
    /// When each step began (system clock, ms), in order; for measuring the pacing.
    std::vector<std::uint32_t> StepStartTimes();
    /// Where the worker threads' reports wait for the window's thread (null before Create). The film
    /// loader of the same session reports here too.
    platform::DeferredMessageSink* Reports() { return reports_.get(); }
    /// Whether the last caption pass or transition was cut short by Escape.
    bool LastCaptionsSkipped() const { return captionsSkipped_.load(); }

private:
    void OnMessage(const platform::Message& message);
    void OnButtonMessage(const platform::Message& message);
    void OnHook(const platform::Message& message);
    void OnTimerTick(bool fromTimerThread);
    void PageUp();
    void PaintButton();
    void PostToParent(std::uint32_t code, std::uint64_t wParam);
    /// Waits out the rest of a frame that began at `frameStart` (frames are at least 55 ms apart).
    /// Returns false, at once, when playback is being stopped.
    bool WaitFrameRest(std::uint32_t frameStart);
    void RunPlaybackThread();
    film::FilmItem CurrentItem();
    void SetCurrentItem(const film::FilmItem& item);

    platform::WindowHost* host_ = nullptr;
    platform::WindowId parent_ = 0;
    platform::WindowId window_ = 0;
    platform::WindowId button_ = 0;
    Rect frame_;
    PlaybackState state_;
    std::mutex itemLock_; // currentItem is read by the window thread (Page Up, painting) too.
    film::FilmItem currentItem_;
    std::unique_ptr<PhotoCache> photoCache_;
    std::unique_ptr<ClipPlayer> clipPlayer_;
    std::unique_ptr<SlidePlayer> slidePlayer_;
    std::unique_ptr<FrameCompositor> compositor_;
    std::unique_ptr<MmTimer> timer_;
    std::unique_ptr<PhotoLoaderThread> loader_;
    std::thread playbackThread_;
    float captionScale_ = 1.0f;
    std::atomic<std::int32_t> playMode_{
        film::kAdvanceAutomatic}; // Set by the playback thread, read by the window thread.
    std::uint32_t Now() const { return static_cast<std::uint32_t>(clock_->NowMs()); }
    void RequestStep();

    platform::Clock* clock_;
    platform::TimerService* timers_;
    std::uint32_t framePeriodMs_;
    platform::ManualResetEvent stopSignal_; // Set by Stop: wakes the playback thread's waits.
    platform::AutoResetEvent stepWake_;     // Set with every step request, and by Stop.
    std::atomic<bool> idle_{false};
    /// What the playback and loader threads report, shown on the window's thread (a box there cannot
    /// hold up a stop, which joins those threads); made in Create.
    std::unique_ptr<platform::DeferredMessageSink> reports_;
    std::atomic<bool> timerBusy_{false};
    std::atomic<bool> buttonShown_{false};
    std::atomic<std::int32_t> stepsDone_{0};
    std::atomic<bool> reachedEnd_{false};
    std::atomic<bool> captionsSkipped_{false};
    bool started_ = false;
    std::mutex stepLogLock_;
    std::vector<std::uint32_t> stepStarts_;
    FrameFit frameFit_ = FrameFit::Design;
};

} // namespace lumenar::playback
