#pragma once
#include <mutex>

namespace fn {

/// A lock that the thread which holds it may take again; the lock is free once that thread has unlocked it as often. Fits
/// `std::lock_guard` and `std::unique_lock`.
class Lock {
public:
    void lock() { _mutex.lock(); } ///< Waits until no other thread has it.
    bool try_lock() { return _mutex.try_lock(); } ///< Whether the caller has it now; does not wait.
    void unlock() { _mutex.unlock(); } ///< As often as it was locked.

private:
    std::recursive_mutex _mutex;
};

using ScopedLock = std::lock_guard<Lock>; ///< Holds a lock until the end of its block.

} // namespace fn
