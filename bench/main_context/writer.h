#pragma once
#include <atomic>
#include <chrono>
#include <cstdint>
#include <semaphore>
#include <thread>

namespace bench {

using Nanoseconds = std::chrono::nanoseconds;

inline Nanoseconds now() { return std::chrono::steady_clock::now().time_since_epoch(); }

/// A thread that makes a descriptor readable, each time it is asked to and after a pause in which whoever waits for the
/// descriptor falls asleep.
class Writer {
public:
    static constexpr auto pause = std::chrono::milliseconds(1);

    Writer();
    Writer(const Writer&) = delete;
    ~Writer();

    int descriptor() const { return _event; } ///< Readable from a write to the next `take()`.
    void askForOne() { _asked.release(); }

    /// Reads the descriptor and says how long ago it was written; ends the program where there was not one write. Where it
    /// is called is where the latency ends.
    Nanoseconds take();

private:
    void run();

    const int _event;
    std::counting_semaphore<> _asked { 0 };
    std::atomic<bool> _isOver { false };
    std::atomic<std::int64_t> _written { 0 }; // When, in nanoseconds.
    std::thread _thread;
};

/// How often the threads of this process, the calling one excepted, have given up their core in order to wait.
std::uint64_t waits();

} // namespace bench
