#include "platform/Sync.h"

#include <pthread.h>
#include <sched.h>

#include <chrono>
#include <cstring>

namespace lumenar::platform {

void AutoResetEvent::Set()
{
    {
        std::lock_guard guard(lock_);
        signalled_ = true;
    }
    changed_.notify_one();
}

bool AutoResetEvent::Wait(std::uint32_t timeoutMs)
{
    std::unique_lock guard(lock_);
    auto ready = [this] { return signalled_; };
    if (timeoutMs == kWaitForever)
        changed_.wait(guard, ready);
    else if (!changed_.wait_for(guard, std::chrono::milliseconds(timeoutMs), ready))
        return false;
    signalled_ = false;
    return true;
}

void ManualResetEvent::Set()
{
    {
        std::lock_guard guard(lock_);
        set_ = true;
    }
    changed_.notify_all();
}

void ManualResetEvent::Reset()
{
    std::lock_guard guard(lock_);
    set_ = false;
}

bool ManualResetEvent::Wait(std::uint32_t timeoutMs)
{
    std::unique_lock guard(lock_);
    auto ready = [this] { return set_; };
    if (timeoutMs == kWaitForever) {
        changed_.wait(guard, ready);
        return true;
    }
    return changed_.wait_for(guard, std::chrono::milliseconds(timeoutMs), ready);
}

bool ManualResetEvent::IsSet()
{
    std::lock_guard guard(lock_);
    return set_;
}

void Gate::Suspend()
{
    std::lock_guard guard(lock_);
    ++closed_;
}

void Gate::Resume()
{
    {
        std::lock_guard guard(lock_);
        if (closed_ > 0)
            --closed_;
    }
    changed_.notify_all();
}

void Gate::Pass()
{
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return closed_ == 0; });
}

bool Gate::Closed()
{
    std::lock_guard guard(lock_);
    return closed_ > 0;
}

bool SetCurrentThreadIdlePriority()
{
    sched_param param{};
    param.sched_priority = 0;
    return pthread_setschedparam(pthread_self(), SCHED_IDLE, &param) == 0;
}

void SetCurrentThreadName(const char* name)
{
    char shortName[16] = {};
    std::strncpy(shortName, name, sizeof shortName - 1);
    pthread_setname_np(pthread_self(), shortName);
}

} // namespace lumenar::platform
