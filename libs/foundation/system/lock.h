#pragma once
#include <mutex>

namespace fn {

/// A lock that the thread which holds it may take again; the lock is free once that thread has unlocked it as often. Fits
/// `std::lock_guard` and `std::unique_lock`.
class Lock {
public:
    void lock() { _mutex.lock(); }
    bool try_lock() { return _mutex.try_lock(); }
    void unlock() { _mutex.unlock(); }

private:
    std::recursive_mutex _mutex;
};

using ScopedLock = std::lock_guard<Lock>;

} // namespace fn
