#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace lumenar::platform {

/// Wait without a time-out.
inline constexpr std::uint32_t kWaitForever = 0xFFFFFFFF;

/// An auto-reset event: Set lets exactly one waiter through (or the next one to come) and resets
/// itself. Any thread.
class AutoResetEvent
{
public:
    void Set();
    /// True when the event was signalled within `timeoutMs` (0 polls); the signal is consumed.
    bool Wait(std::uint32_t timeoutMs);

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool signalled_ = false;
};

/// A manual-reset event: once Set, every wait returns at once until Reset. Used to cut a timed wait
/// short (a stop request wakes a thread that is pacing its frames). Any thread.
class ManualResetEvent
{
public:
    void Set();
    void Reset();
    /// True when the event is set, or becomes set within `timeoutMs` (0 polls).
    bool Wait(std::uint32_t timeoutMs);
    bool IsSet();

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool set_ = false;
};

/// Suspends a worker thread at the points it chooses: while the gate is closed, Pass blocks. A worker
/// calls Pass only where it holds no lock, so closing the gate can never stall a lock holder.
/// Closes nest (two Suspends need two Resumes). Any thread.
class Gate
{
public:
    void Suspend();
    void Resume();
    /// Returns at once while open; blocks while closed.
    void Pass();
    bool Closed();

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int closed_ = 0;
};

/// Drops the calling thread to the lowest scheduling class (runs only when nothing else wants the
/// processor). False when the system refuses.
bool SetCurrentThreadIdlePriority();

/// Names the calling thread for debuggers and `ps` (at most 15 characters are kept).
void SetCurrentThreadName(const char* name);

} // namespace lumenar::platform
