#pragma once

#include "platform/Clock.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace lumenar::platform {

/// A running periodic timer; destroying it stops it, waiting for a tick in progress to end. A tick
/// must not destroy its own timer.
class PeriodicTimer
{
public:
    virtual ~PeriodicTimer() = default;
};

/// The resolution range a timer service offers, in milliseconds.
struct TimerCaps
{
    std::uint32_t minPeriodMs;
    std::uint32_t maxPeriodMs;
};

/// The multimedia timer: periodic callbacks at a given period.
class TimerService
{
public:
    virtual ~TimerService() = default;
    virtual TimerCaps Caps() const = 0;
    /// Calls `tick` every `periodMs` until the returned timer is destroyed. `resolutionMs` (within
    /// Caps()) is how closely the ticks follow the period. Where `tick` runs is the service's: its own
    /// thread for the system service, the caller of Advance for ManualTimers.
    virtual std::unique_ptr<PeriodicTimer> StartPeriodic(std::uint32_t periodMs, std::uint32_t resolutionMs,
                                                         std::function<void()> tick) = 0;
};

/// Timers on the system's steady clock, each ticking on a thread of its own.
TimerService& SystemTimers();

/// Timers driven by a ManualClock: nothing ticks until Advance, which moves the clock and runs, on the
/// calling thread and in time order, every tick that falls due, with the clock set to its due time.
/// Tests and headless runs.
class ManualTimers final : public TimerService
{
public:
    explicit ManualTimers(ManualClock& clock) : clock_(clock) {}
    TimerCaps Caps() const override { return {1, 1000000}; }
    std::unique_ptr<PeriodicTimer> StartPeriodic(std::uint32_t periodMs, std::uint32_t resolutionMs,
                                                 std::function<void()> tick) override;
    /// Moves the clock forward by `ms`, ticking on the way.
    void Advance(std::uint64_t ms);
    /// When the next tick falls due, if any timer runs.
    std::optional<std::uint64_t> NextDue();

private:
    struct Entry
    {
        std::uint64_t due;
        std::uint32_t period;
        std::function<void()> tick;
        bool live;
    };
    class Handle;
    ManualClock& clock_;
    std::mutex lock_; // Guards entries_.
    std::vector<std::shared_ptr<Entry>> entries_;
};

} // namespace lumenar::platform
