#include "platform/Timer.h"

#include "platform/DebugTrace.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <stop_token>
#include <thread>

namespace lumenar::platform {

namespace {

class SteadyClock final : public Clock
{
public:
    std::uint64_t NowMs() const override
    {
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::steady_clock::now().time_since_epoch())
                                              .count());
    }
};

class ThreadTimer final : public PeriodicTimer
{
public:
    ThreadTimer(std::uint32_t periodMs, std::function<void()> tick)
        : thread_(
              [this, periodMs, tick = std::move(tick)](std::stop_token stop) { Run(stop, periodMs, tick); })
    {
    }
    ~ThreadTimer() override
    {
        thread_.request_stop();
        wake_.notify_all();
    }

private:
    void Run(std::stop_token stop, std::uint32_t periodMs, const std::function<void()>& tick)
    {
        const auto period = std::chrono::milliseconds(periodMs);
        auto next = std::chrono::steady_clock::now() + period;
        std::unique_lock<std::mutex> hold(lock_);
        while (!stop.stop_requested()) {
            if (wake_.wait_until(hold, stop, next, [] { return false; }) || stop.stop_requested())
                break;
            hold.unlock();
            CatchAll("timer tick", tick);
            hold.lock();
            next += period;
            const auto now = std::chrono::steady_clock::now();
            if (next < now) // A late tick does not cause a burst of catch-up ticks.
                next = now + period;
        }
    }

    std::mutex lock_; // Only for the wait; guards nothing else.
    std::condition_variable_any wake_;
    std::jthread thread_; // Last: it starts after the members it uses and stops before they go.
};

class SystemTimerService final : public TimerService
{
public:
    TimerCaps Caps() const override { return {1, 1000000}; }
    std::unique_ptr<PeriodicTimer> StartPeriodic(std::uint32_t periodMs, std::uint32_t,
                                                 std::function<void()> tick) override
    {
        return std::make_unique<ThreadTimer>(std::max<std::uint32_t>(periodMs, 1), std::move(tick));
    }
};

} // namespace

bool Clock::WaitUntil(std::uint64_t deadlineMs, ManualResetEvent& wake)
{
    const std::uint64_t now = NowMs();
    if (deadlineMs <= now)
        return wake.IsSet();
    return wake.Wait(static_cast<std::uint32_t>(std::min<std::uint64_t>(deadlineMs - now, 0xFFFFFFFEu)));
}

bool ManualClock::WaitUntil(std::uint64_t deadlineMs, ManualResetEvent& wake)
{
    std::unique_lock<std::mutex> hold(lock_);
    deadlines_.push_back(deadlineMs);
    bool woken = false;
    // The wake event has no link to this condition: it is looked at every millisecond of real time.
    while (!(woken = wake.IsSet()) && now_.load() < deadlineMs)
        moved_.wait_for(hold, std::chrono::milliseconds(1));
    deadlines_.erase(std::find(deadlines_.begin(), deadlines_.end(), deadlineMs));
    return woken;
}

void ManualClock::Set(std::uint64_t ms)
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        now_.store(ms);
    }
    moved_.notify_all();
}

std::optional<std::uint64_t> ManualClock::EarliestWait()
{
    std::lock_guard<std::mutex> hold(lock_);
    if (deadlines_.empty())
        return std::nullopt;
    return *std::min_element(deadlines_.begin(), deadlines_.end());
}

Clock& SystemClock()
{
    static SteadyClock clock;
    return clock;
}

TimerService& SystemTimers()
{
    static SystemTimerService service;
    return service;
}

class ManualTimers::Handle final : public PeriodicTimer
{
public:
    Handle(ManualTimers& owner, std::shared_ptr<Entry> entry) : owner_(owner), entry_(std::move(entry)) {}
    ~Handle() override
    {
        std::lock_guard<std::mutex> hold(owner_.lock_);
        entry_->live = false;
    }

private:
    ManualTimers& owner_;
    std::shared_ptr<Entry> entry_;
};

std::unique_ptr<PeriodicTimer> ManualTimers::StartPeriodic(std::uint32_t periodMs, std::uint32_t,
                                                           std::function<void()> tick)
{
    auto entry = std::make_shared<Entry>(Entry{clock_.NowMs() + std::max<std::uint32_t>(periodMs, 1),
                                               std::max<std::uint32_t>(periodMs, 1), std::move(tick), true});
    std::lock_guard<std::mutex> hold(lock_);
    entries_.push_back(entry);
    return std::make_unique<Handle>(*this, entry);
}

std::optional<std::uint64_t> ManualTimers::NextDue()
{
    std::lock_guard<std::mutex> hold(lock_);
    std::optional<std::uint64_t> due;
    for (const auto& e : entries_)
        if (e->live && (!due || e->due < *due))
            due = e->due;
    return due;
}

void ManualTimers::Advance(std::uint64_t ms)
{
    const std::uint64_t end = clock_.NowMs() + ms;
    for (;;) {
        std::shared_ptr<Entry> next;
        {
            std::lock_guard<std::mutex> hold(lock_);
            std::erase_if(entries_, [](const auto& e) { return !e->live; });
            for (const auto& e : entries_)
                if (e->due <= end && (!next || e->due < next->due))
                    next = e;
            if (!next)
                break;
            clock_.Set(std::max(clock_.NowMs(), next->due));
            next->due += next->period;
        }
        next->tick();
    }
    clock_.Set(end);
}

} // namespace lumenar::platform
