#pragma once

#include "platform/Sync.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace lumenar::platform {

/// Milliseconds from an arbitrary start that never goes backwards. Any thread.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual std::uint64_t NowMs() const = 0;
    /// Waits until the clock reads at least `deadlineMs` or `wake` is set, whichever comes first.
    /// Returns true when `wake` ended the wait. Any thread.
    virtual bool WaitUntil(std::uint64_t deadlineMs, ManualResetEvent& wake);
};

/// The system's steady clock.
Clock& SystemClock();

/// A clock that moves only when told to: tests, and runs that must not depend on the machine's speed.
/// A thread waiting on it stays parked until Set or Advance carries the clock to its deadline, and
/// EarliestWait tells a driver where the next parked thread wants to wake. Any thread.
class ManualClock final : public Clock
{
public:
    std::uint64_t NowMs() const override { return now_.load(); }
    bool WaitUntil(std::uint64_t deadlineMs, ManualResetEvent& wake) override;
    void Set(std::uint64_t ms);
    void Advance(std::uint64_t ms) { Set(now_.load() + ms); }
    /// The earliest deadline a thread is waiting for, if one waits.
    std::optional<std::uint64_t> EarliestWait();

private:
    std::atomic<std::uint64_t> now_{0};
    std::mutex lock_; // Guards deadlines_; the condition's lock.
    std::condition_variable moved_;
    std::vector<std::uint64_t> deadlines_;
};

} // namespace lumenar::platform
