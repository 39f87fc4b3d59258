#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace lumenar::base {

/// A std::mutex that knows which thread holds it, so that a function documented as "called with the
/// lock held" can check it: LUM_ASSERT(lock.HeldByThisThread(), ...). Usable with std::lock_guard and
/// std::unique_lock. Any thread.
class Mutex
{
public:
    void lock()
    {
        mutex_.lock();
        owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    bool try_lock()
    {
        if (!mutex_.try_lock())
            return false;
        owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
        return true;
    }
    void unlock()
    {
        owner_.store(std::thread::id(), std::memory_order_relaxed);
        mutex_.unlock();
    }
    /// True when the calling thread holds the lock. Only the holder can have stored its own id, so a
    /// relaxed read cannot give a false yes.
    bool HeldByThisThread() const
    {
        return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }

private:
    std::mutex mutex_;
    std::atomic<std::thread::id> owner_{};
};

} // namespace lumenar::base
