#include "playback/PlayerWindow.h"

#include "codec/Photo.h"
#include "platform/Clock.h"
#include "platform/DebugTrace.h"
#include "platform/DisplayAwake.h"
#include "platform/ReportBox.h"
#include "platform/Sync.h"
#include "playback/CaptionLayout.h"

#include <algorithm>
#include <cstdio>
#include <array>
#include <chrono>

namespace lumenar::playback {

namespace {

constexpr std::uint32_t kFramePeriodMs = 55;
constexpr std::uint32_t kCaptionMs = 3000;
constexpr int kMaxCaptions = 10;

Rect ItemRect(const film::FilmItem& item)
{
    return {item.rect[0], item.rect[1], item.rect[2], item.rect[3]};
}

} // namespace

MmTimer::MmTimer(platform::TimerService& service, std::uint32_t wantedResolution) : service_(service)
{
    platform::TimerCaps caps = service.Caps();
    resolution_ = std::min(std::max(wantedResolution, caps.minPeriodMs), caps.maxPeriodMs);
}

MmTimer::~MmTimer()
{
    Kill();
}

std::uint32_t MmTimer::Set(std::uint32_t /*id*/, std::uint32_t delay, std::function<void()> callback)
{
    std::unique_ptr<platform::PeriodicTimer> old;
    std::lock_guard guard(lock_);
    old = std::move(timer_);
    timer_ = service_.StartPeriodic(std::max<std::uint32_t>(delay, 1), resolution_, std::move(callback));
    id_ = timer_ ? kStepTimerId : 0;
    return id_;
}

int MmTimer::Kill()
{
    std::unique_ptr<platform::PeriodicTimer> old;
    {
        std::lock_guard guard(lock_);
        old = std::move(timer_);
        id_ = 0;
    }
    return 1; // Destroying `old` waits for a tick in progress.
}

PlayerWindow::PlayerWindow()
    : clock_(&platform::SystemClock()), timers_(&platform::SystemTimers()), framePeriodMs_(kFramePeriodMs)
{
    currentItem_.index = 0;
    currentItem_.kind = film::kFilmItemPhoto;
}

PlayerWindow::~PlayerWindow()
{
    Destroy();
}

void PlayerWindow::SetTiming(platform::Clock& clock, platform::TimerService& timers)
{
    clock_ = &clock;
    timers_ = &timers;
}

void PlayerWindow::SetFramePeriod(std::uint32_t periodMs)
{
    framePeriodMs_ = periodMs == 0 ? kFramePeriodMs : periodMs;
}

void PlayerWindow::RequestStep()
{
    state_.stepRequested = 1;
    stepWake_.Set();
}

film::FilmItem PlayerWindow::CurrentItem()
{
    std::lock_guard guard(itemLock_);
    return currentItem_;
}

void PlayerWindow::SetCurrentItem(const film::FilmItem& item)
{
    std::lock_guard guard(itemLock_);
    currentItem_ = item;
    state_.currentNumber = item.index;
}

int PlayerWindow::Create(platform::WindowHost& host, platform::WindowId parent, film::Film* film,
                         int startNumber, bool large)
{
    host_ = &host;
    parent_ = parent;
    reports_ = std::make_unique<platform::DeferredMessageSink>([this] {
        if (window_ != 0)
            host_->Post(window_, kMsgPlayerReports, 0, 0);
    });
    platform::WindowRect parentRect = host.ScreenRect(parent);
    int clientWidth = parentRect.right - parentRect.left;
    int clientHeight = parentRect.bottom - parentRect.top;
    window_ = host.CreateChild(parent, {0, 0, clientWidth, clientHeight},
                               [this](const platform::Message& m) { OnMessage(m); });
    if (window_ == 0)
        return 0;
    frame_ = FrameGeometry(clientWidth, clientHeight, large, frameFit_);

    int bw = std::min(frame_.Width(), 20);
    int bh = std::min(frame_.Height(), 15);
    int bx = frame_.Width() - bw - 2;
    int by = 2;
    // Compatibility: the frame's width sets the button's place, but the place is taken in the player
    // window, so on a client area wider or taller than the frame the button sits left of the frame's
    // corner.
    button_ = host.CreateChild(window_, {bx, by, bx + bw, by + bh},
                               [this](const platform::Message& m) { OnButtonMessage(m); });
    int px = 0, py = 0;
    host.PointerPosition(px, py);
    platform::WindowRect screen = host.ScreenRect(window_);
    bool inside = px >= screen.left + frame_.left && px < screen.left + frame_.right &&
                  py >= screen.top + frame_.top && py < screen.top + frame_.bottom;
    host.Show(button_, inside);
    buttonShown_ = inside;
    host.SetHook([this](const platform::Message& m) { OnHook(m); });
    host.SetFocus(window_);

    photoCache_ = std::make_unique<PhotoCache>(0);
    photoCache_->SetGuard(&state_.cacheLock);
    photoCache_->Init(&currentItem_, {frame_.left, frame_.top, frame_.right, frame_.bottom},
                      {screen.left, screen.top, screen.right, screen.bottom});
    clipPlayer_ = std::make_unique<ClipPlayer>();
    slidePlayer_ = std::make_unique<SlidePlayer>();
    slidePlayer_->SetItem(&currentItem_);
    compositor_ =
        std::make_unique<FrameCompositor>(clientWidth, clientHeight, frame_.Width(), frame_.Height());
    timer_ = std::make_unique<MmTimer>(*timers_, 10);

    captionScale_ = static_cast<float>(frame_.Width() * 0.00125);
    compositor_->Registry().LoadNames(effects::kPictureTable, false);
    compositor_->Registry().LoadNames(effects::kTextTable, false);

    state_.film = film;
    film::FilmItem start;
    start.index = (startNumber == 0 ? 1 : startNumber) - 1;
    start.kind = film::kFilmItemPhoto;
    SetCurrentItem(start);

    platform::KeepDisplayAwake(platform::kContinuous | platform::kSystemRequired |
                               platform::kDisplayRequired);
    Start();
    return 1;
}

void PlayerWindow::Start()
{
    stopSignal_.Reset();
    compositor_->Open();
    state_.repeat = 0;
    {
        std::lock_guard guard(state_.filmLock);
        playMode_ = state_.film ? state_.film->GetAdvanceMode() : film::kAdvanceManual;
    }
    state_.nextReady = 0;
    loader_ = std::make_unique<PhotoLoaderThread>(state_, *photoCache_, *clipPlayer_, reports_.get());
    loader_->Start();
    state_.stepRequested = 0;
    playbackThread_ = std::thread([this] { RunPlaybackThread(); });
    started_ = true;

    host_->AsyncKeyPressed(platform::kKeyEscape);
    if (playMode_ == film::kAdvanceManual) {
        host_->AsyncKeyPressed(platform::kKeyPageUp);
        host_->AsyncKeyPressed(platform::kKeyPageDown);
    }
    if (playMode_ == film::kAdvanceAutomatic)
        timer_->Set(kStepTimerId, 500, [this] { OnTimerTick(true); });
    else
        RequestStep();
}

void PlayerWindow::RunPlaybackThread()
{
    platform::SetCurrentThreadName("PhotoThread[1]");
    platform::ThreadMessageSink reportsGo(reports_.get());
    while (state_.running) {
        if (state_.stepRequested.exchange(0) != 0) {
            platform::CatchAll("PhotoThread[1] step", [this] { Step(); });
            continue;
        }
        // Every request wakes the thread; the time-out only bounds how long a request missed by a
        // race between the test above and this wait can go unseen.
        idle_ = true;
        stepWake_.Wait(10);
        idle_ = false;
    }
}

void PlayerWindow::OnTimerTick(bool fromTimerThread)
{
    if (fromTimerThread)
        timerBusy_ = true;
    if (clipPlayer_) {
        film::FilmItem item = CurrentItem();
        if (!(item.kind == film::kFilmItemClip && clipPlayer_->IsPlaying() == 1))
            RequestStep();
    }
    if (fromTimerThread)
        timerBusy_ = false;
}

void PlayerWindow::PostToParent(std::uint32_t code, std::uint64_t wParam)
{
    host_->Post(parent_, code, wParam, static_cast<std::int64_t>(button_));
}

void PlayerWindow::Step()
{
    const std::uint32_t t0 = Now();
    {
        std::lock_guard guard(stepLogLock_);
        stepStarts_.push_back(t0);
    }
    film::FilmItem current = CurrentItem();
    // A film whose file has not arrived yet counts −1 items and is waited for; one whose items were
    // all removed on arrival counts 0 and ends here, as the item on screen is then number 0.
    if (current.index == state_.ItemCount()) {
        reachedEnd_ = true;
        PostToParent(platform::kMsgCommand, kCommandStop);
        host_->Invalidate(button_);
    }
    film::FilmItem next = state_.Item(current.index + 1);
    if (next.index == -1) {
        if (state_.repeat == 0)
            return;
        next = state_.Item(1);
    }
    timer_->Kill();
    if (current.kind == film::kFilmItemClip)
        clipPlayer_->StopClip(0);

    while (!state_.photoReady.Wait(0)) {
        stopSignal_.Wait(100);
        if (!state_.running)
            return;
    }
    // Taken again: the film may have grown while the photo was awaited. No repeat branch here.
    next = state_.Item(current.index + 1);
    // A streamed film's advance mode arrives after playback has started, with the film's description:
    // it is known for certain once the first item has, so it is taken again then.
    if (stepsDone_ == 0) {
        std::lock_guard guard(state_.filmLock);
        if (state_.film != nullptr && state_.film->GetAdvanceMode() != playMode_) {
            playMode_ = state_.film->GetAdvanceMode();
            host_->AsyncKeyPressed(platform::kKeyPageUp);
            host_->AsyncKeyPressed(platform::kKeyPageDown);
        }
    }

    state_.loaderGate.Suspend();
    Rect fromRect = ItemRect(current);
    Rect toRect = ItemRect(next);
    std::int32_t scaleClips = 0;
    {
        std::lock_guard guard(state_.filmLock);
        scaleClips = state_.film ? state_.film->GetScaleClips() : 0;
    }
    auto clipRect = [&](const film::FilmItem& item, codec::Photo* photo, Rect& rect) {
        if (item.kind != film::kFilmItemClip || photo == nullptr || item.width == 0 || item.height == 0)
            return;
        int w = photo->Width();
        int h = photo->Height();
        if (scaleClips == 0 && w <= frame_.Width() && h <= frame_.Height()) {
            int rw = static_cast<int>(std::int64_t(frame_.Width()) * w / item.width);
            int rh = static_cast<int>(std::int64_t(frame_.Height()) * h / item.height);
            rect.left = (w - rw) / 2;
            rect.top = (h - rh) / 2;
            rect.right = rect.left + rw;
            rect.bottom = rect.top + rh;
        }
    };
    codec::Photo* currentPhoto;
    codec::Photo* currentMask;
    codec::Photo* nextPhoto;
    codec::Photo* nextMask;
    {
        std::lock_guard guard(state_.cacheLock);
        currentPhoto = state_.currentPhoto;
        currentMask = state_.currentMask;
        nextPhoto = state_.nextPhoto;
        nextMask = state_.nextMask;
    }
    clipRect(current, currentPhoto, fromRect);
    clipRect(next, nextPhoto, toRect);

    int result = PlayTransition(currentPhoto, currentMask, fromRect, nextPhoto, nextMask, toRect, next.effect,
                                static_cast<std::uint32_t>(next.effectMs), current.kind);
    if (!state_.running)
        return; // Stopped mid-transition: Stop reopens the loader's gate and ends the threads.
    SetCurrentItem(next);
    {
        std::lock_guard guard(state_.cacheLock);
        if (next.kind == film::kFilmItemPhoto)
            photoCache_->Rotate(&currentItem_, &state_.currentPhoto, &state_.currentMask);
        else if (next.kind == film::kFilmItemClip)
            clipPlayer_->StartClip(&currentItem_, &state_.currentPhoto, result);
        else if (next.kind == film::kFilmItemPowerPoint)
            slidePlayer_->StartShow(&currentItem_, &state_.currentPhoto);
        currentPhoto = state_.currentPhoto;
        currentMask = state_.currentMask;
    }
    if (next.kind == film::kFilmItemPhoto && result == 1)
        PlayCaptions(currentPhoto, currentMask, toRect, next);

    state_.nextReady = 0;
    state_.loaderGate.Resume();

    std::uint32_t d = static_cast<std::uint32_t>(next.displaySeconds) * 1000 +
                      static_cast<std::uint32_t>(next.effectMs) + (next.texts.empty() ? 0 : kCaptionMs);
    std::uint32_t elapsed = Now() - t0;
    std::uint32_t remaining = d > elapsed ? d - elapsed : 1;
    if (playMode_ == film::kAdvanceAutomatic)
        timer_->Set(kStepTimerId, remaining, [this] { OnTimerTick(true); });
    ++stepsDone_;
    state_.stepDone.Set();
}

int PlayerWindow::PlayTransition(codec::Photo* fromPhoto, codec::Photo* fromMask, Rect fromRect,
                                 codec::Photo* toPhoto, codec::Photo* toMask, Rect toRect, int effect,
                                 std::uint32_t duration, int outgoingKind)
{
    if (duration == 0)
        return 1;
    if (toPhoto == nullptr)
        return 0;
    platform::FramePresenter& window = host_->Presenter(window_);
    std::uint32_t t0 = Now();
    if (outgoingKind == film::kFilmItemPhoto) {
        compositor_->PrepareFromScreen(toPhoto, toMask, toRect);
    } else if (outgoingKind == film::kFilmItemClip && fromPhoto != nullptr) {
        compositor_->PreparePair(fromPhoto, fromMask, fromRect, toPhoto, toMask, toRect);
    } else if (outgoingKind == film::kFilmItemPowerPoint || outgoingKind == film::kFilmItemClip) {
        compositor_->PrepareFromScreen(toPhoto, toMask, toRect);
        compositor_->BeginTransition(effect);
        compositor_->RenderTransitionFrame(effect, window, static_cast<int>(duration),
                                           static_cast<int>(duration));
        compositor_->EndTransition(effect);
        return 1;
    }
    compositor_->BeginTransition(effect);
    std::uint32_t t = Now();
    std::uint32_t total = duration - (t - t0);
    std::uint32_t elapsed = 0;
    if (total > duration) {
        total = 1;
        t += 1;
        elapsed = 1;
    }
    t0 = t;
    do {
        std::uint32_t frameStart = Now();
        compositor_->RenderTransitionFrame(effect, window, static_cast<int>(elapsed),
                                           static_cast<int>(total));
        // Escape, or a stop, ends the transition where it stands: no final frame.
        if (host_->AsyncKeyPressed(platform::kKeyEscape) || !WaitFrameRest(frameStart)) {
            compositor_->EndTransition(effect);
            return 0;
        }
        elapsed = Now() - t0;
    } while (elapsed < total);
    compositor_->RenderTransitionFrame(effect, window, static_cast<int>(total), static_cast<int>(total));
    compositor_->CommitTarget();
    compositor_->EndTransition(effect);
    return 1;
}

int PlayerWindow::PlayCaptions(codec::Photo* photo, codec::Photo* mask, Rect rect, const film::FilmItem& item)
{
    if (photo == nullptr)
        return 0;
    std::uint32_t duration = kCaptionMs;
    std::uint32_t t0 = Now();
    const int captionCount = std::min<int>(static_cast<int>(item.texts.size()), kMaxCaptions);
    struct Caption
    {
        PreparedCaption prepared;
        int effect = 0;
    };
    auto captions = std::make_unique<Caption[]>(kMaxCaptions);
    for (int i = 0; i < captionCount; ++i) {
        PrepareCaption(item.texts[i].style, item.texts[i].text, captionScale_, captions[i].prepared);
        captions[i].effect = item.texts[i].effect;
    }
    auto renderAll = [&](std::uint32_t num, std::uint32_t den) {
        for (int i = 0; i < captionCount; ++i) {
            PreparedCaption& c = captions[i].prepared;
            compositor_->RenderCaptionFrame(captions[i].effect, c.glyphs.data(), c.count, &c.record,
                                            static_cast<int>(num), static_cast<int>(den));
        }
    };
    if (captionCount == 0)
        duration = 1;
    for (int i = 0; i < captionCount; ++i) {
        PreparedCaption& c = captions[i].prepared;
        compositor_->BeginCaption(captions[i].effect, c.glyphs.data(), c.count, &c.record);
    }
    compositor_->PrepareFromScreen(photo, mask, rect);
    platform::FramePresenter& window = host_->Presenter(window_);

    std::uint32_t t = Now();
    std::uint32_t total = duration - (t - t0);
    if (total > duration) {
        total = 1;
        t += 1;
    }
    t0 = t;
    bool skipped = false;
    bool stopped = false;
    std::uint32_t progress = 0;
    do {
        std::uint32_t frameStart = Now();
        compositor_->RestoreTarget();
        renderAll(progress, total);
        compositor_->PublishOutput(window);
        if (host_->AsyncKeyPressed(platform::kKeyEscape)) {
            skipped = true;
            break;
        }
        if (!WaitFrameRest(frameStart)) {
            stopped = true;
            break;
        }
        t = Now();
        progress = t - t0;
    } while (t - t0 < total);
    // A stop leaves the picture where it stands; Escape jumps to the captions' final state.
    if (!stopped) {
        compositor_->RestoreTarget();
        renderAll(total, total);
        compositor_->PublishOutput(window);
    }
    for (int i = 0; i < captionCount; ++i)
        compositor_->EndCaption(captions[i].effect, &captions[i].prepared.record);
    captionsSkipped_ = skipped || stopped;
    return skipped || stopped ? 0 : 1;
}

bool PlayerWindow::WaitFrameRest(std::uint32_t frameStart)
{
    const std::uint32_t spent = Now() - frameStart;
    if (spent < framePeriodMs_)
        clock_->WaitUntil(clock_->NowMs() + (framePeriodMs_ - spent), stopSignal_);
    return state_.running.load() != 0;
}

std::vector<std::uint32_t> PlayerWindow::StepStartTimes()
{
    std::lock_guard guard(stepLogLock_);
    return stepStarts_;
}

void PlayerWindow::Stop()
{
    if (!started_)
        return;
    state_.running = 0;
    stopSignal_.Set();
    stepWake_.Set(); // Cuts a frame's pacing wait short: a transition or caption ends within a frame.
    if (playbackThread_.joinable())
        playbackThread_.join();
    platform::DebugTrace("PhotoThread[1] has finished ---- \n");
    state_.loaderGate.Resume();
    if (loader_)
        loader_->Stop();
    if (CurrentItem().kind == film::kFilmItemClip)
        clipPlayer_->StopClip(1);
    timer_->Kill();
    while (timerBusy_.load())
        std::this_thread::yield();
    state_.stepRequested = 0;
    started_ = false;
}

void PlayerWindow::Destroy()
{
    if (host_ == nullptr)
        return;
    host_->SetHook(nullptr);
    host_->Destroy(button_);
    if (state_.loaderRunning == 1 && state_.running == 1)
        Stop();
    else if (started_)
        Stop();
    if (compositor_)
        compositor_->Close();
    loader_.reset();
    // The threads have ended: what they reported and nobody has seen yet is shown now.
    if (reports_)
        reports_->Deliver(platform::MessageSinkFor(host_->IsHeadless()), true);
    photoCache_.reset();
    clipPlayer_.reset();
    slidePlayer_.reset();
    compositor_.reset();
    timer_.reset();
    platform::KeepDisplayAwake(platform::kSystemRequired | platform::kDisplayRequired);
    platform::KeepDisplayAwake(platform::kContinuous);
    host_->Destroy(window_);
    host_ = nullptr;
}

void PlayerWindow::OnHook(const platform::Message& message)
{
    if (message.code != platform::kMsgMouseMove || window_ == 0 || button_ == 0)
        return;
    platform::WindowRect rect = host_->ScreenRect(window_);
    bool inside = rect.Contains(message.screenX, message.screenY);
    if (inside != buttonShown_.load()) {
        host_->Show(button_, inside);
        buttonShown_ = inside;
        if (inside)
            host_->Invalidate(button_);
        else
            host_->Invalidate(window_);
    }
}

void PlayerWindow::OnMessage(const platform::Message& message)
{
    switch (message.code) {
    case platform::kMsgKeyDown: {
        int key = static_cast<int>(message.wParam);
        if (key == platform::kKeyEscape) {
            PostToParent(platform::kMsgKeyDown, platform::kKeyEscape);
        } else if (key == platform::kKeyPageDown) {
            if (playMode_ == film::kAdvanceManual) {
                RequestStep();
                host_->AsyncKeyPressed(platform::kKeyPageDown);
            }
        } else if (key == platform::kKeyPageUp) {
            if (playMode_ == film::kAdvanceManual)
                PageUp();
        } else if (CurrentItem().kind == film::kFilmItemPhoto && photoCache_ &&
                   photoCache_->HandleViewerKey(key)) {
            host_->Invalidate(window_);
        }
        break;
    }
    case platform::kMsgLButtonDblClk:
        host_->Post(parent_, platform::kMsgKeyDown, platform::kKeyEscape, 0);
        break;
    case platform::kMsgPaint:
        // A clip shows its still like a photo; a show draws nothing.
        if (CurrentItem().kind != film::kFilmItemPowerPoint && compositor_)
            compositor_->PresentDisplay(host_->Presenter(window_));
        if (buttonShown_)
            PaintButton();
        break;
    case platform::kMsgTimer:
        if (message.wParam == kStepTimerId)
            OnTimerTick(false);
        break;
    case kMsgPlayerReports:
        reports_->Deliver(platform::MessageSinkFor(host_->IsHeadless()));
        break;
    default:
        break;
    }
}

void PlayerWindow::PageUp()
{
    film::FilmItem current = CurrentItem();
    std::int32_t target = current.index - 2;
    if (state_.repeat == 0 && target < 0)
        return;
    // The loader may have ended with the film; a user's key must not freeze the window for good.
    if (!state_.photoReady.Wait(5000))
        platform::ReportBox(nullptr, 0, 3, "Error", 0, "Can't decompress image");
    if (state_.repeat != 0 && target < 1)
        target += std::max(state_.ItemCount(), 0);
    film::FilmItem item = state_.Item(target);
    if (state_.repeat == 0 && target == 0) {
        item = current;
        item.index = 0;
        item.kind = film::kFilmItemPhoto;
    }
    SetCurrentItem(item);
    state_.nextReady = 0;
    RequestStep();
    host_->AsyncKeyPressed(platform::kKeyPageUp);
}

void PlayerWindow::OnButtonMessage(const platform::Message& message)
{
    if (message.code == platform::kMsgLButtonUp) {
        PostToParent(platform::kMsgCommand, state_.loaderRunning == 0 ? kCommandPlay : kCommandStop);
        host_->Invalidate(button_);
    } else if (message.code == platform::kMsgPaint) {
        PaintButton();
    }
}

void PlayerWindow::PaintButton()
{
    platform::WindowRect rect = host_->ScreenRect(button_);
    int w = rect.right - rect.left;
    int h = rect.bottom - rect.top;
    if (w <= 0 || h <= 0)
        return;
    int px = 0, py = 0;
    host_->PointerPosition(px, py);
    bool hot = rect.Contains(px, py);
    const bool pressed = false; // A press shows only between button down and up, which is not tracked.
    std::vector<std::uint8_t> bits(std::size_t(w) * h * 4);
    auto put = [&](int x, int y, std::uint32_t bgr) {
        if (x < 0 || y < 0 || x >= w || y >= h)
            return;
        std::uint8_t* p = bits.data() + (std::size_t(h - 1 - y) * w + x) * 4;
        p[0] = bgr & 0xFF;
        p[1] = (bgr >> 8) & 0xFF;
        p[2] = (bgr >> 16) & 0xFF;
    };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            put(x, y, 0xBFBFBF);
    std::uint32_t light = pressed ? 0x000000 : 0xFFFFFF;
    std::uint32_t dark = pressed ? 0xFFFFFF : 0x000000;
    for (int x = 0; x < w; ++x) {
        put(x, 0, light);
        put(x, h - 1, dark);
        put(x, h - 2, 0x7F7F7F);
    }
    for (int y = 0; y < h; ++y) {
        put(0, y, light);
        put(w - 1, y, dark);
        put(w - 2, y, 0x7F7F7F);
    }
    // Pure blue (red in the low byte of the colour value 0xFF0000) when hot; as BGR bytes that is 0x0000FF.
    std::uint32_t glyph = (pressed || hot) ? 0x0000FF : 0x000000;
    int shift = pressed ? 1 : 0;
    if (state_.loaderRunning == 0) {
        static constexpr int kLengths[6] = {1, 3, 5, 5, 3, 1};
        for (int row = 0; row < 6; ++row)
            for (int i = 0; i < kLengths[row]; ++i)
                put(7 + i + shift, 4 + row + shift, glyph);
    } else {
        for (int y = 4; y < 10; ++y)
            for (int x = 7; x < 13; ++x)
                put(x + shift, y + shift, glyph);
    }
    host_->Presenter(button_).Present(bits.data(), w, h, 0, 0);
}

} // namespace lumenar::playback
