#pragma once

#include <atomic>
#include <cstdint>

namespace lumenar::platform {

/// Milliseconds from an arbitrary start that never goes backwards. Any thread.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual std::uint64_t NowMs() const = 0;
};

/// The system's steady clock.
Clock& SystemClock();

/// A clock that moves only when told to: tests and headless runs. Any thread.
class ManualClock final : public Clock
{
public:
    std::uint64_t NowMs() const override { return now_.load(); }
    void Set(std::uint64_t ms) { now_.store(ms); }
    void Advance(std::uint64_t ms) { now_.fetch_add(ms); }

private:
    std::atomic<std::uint64_t> now_{0};
};

} // namespace lumenar::platform
