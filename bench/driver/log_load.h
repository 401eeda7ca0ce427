#pragma once
#include "driver/driver.h"
#include <atomic>
#include <filesystem>
#include <thread>

namespace bench {

/// The text of every message, for a number of the thread and of the message.
constexpr auto logFormat = "message {} {} from a worker that has connected to the hub, end";

/// The load of a logger, the same for every library: logs from so many threads without a pause for the time of the
/// measurement, looks whether the files hold what they should, and reports the time that a message took, over all
/// threads together. Priorities up
/// to "info" are wanted, and written to files of 1 MiB, of which 9 are kept; with `suppressed` 1 messages are of "debug".
class LogLoad {
public:
    static constexpr std::uint64_t fileBytes = 1 << 20;
    static constexpr int files = 9;

    explicit LogLoad(const Options& options);

    bool suppressed() const { return _suppressed; }
    const std::filesystem::path& folder() const { return _folder; } ///< For the log files alone.

    /// `log(thread, number)` logs one message. When it returns, the system has the line.
    template <typename Log> void run(const Log& log)
    {
        std::vector<std::jthread> threads;
        for (unsigned thread = 0; thread < _logged.size(); ++thread) {
            threads.emplace_back([this, &log, thread] {
                for (std::uint64_t number = 0; !_stop.load(std::memory_order_relaxed);) {
                    for (int i = 0; i < messagesPerCount; ++i) log(thread, number++);
                    _logged[thread].count.store(number, std::memory_order_relaxed);
                }
            });
        }
        measure();
        _stop = true;
        threads.clear();
        finish();
    }

private:
    static constexpr int messagesPerCount = 256;

    struct alignas(64) Count {
        std::atomic<std::uint64_t> count { 0 };
    };

    std::uint64_t logged() const;
    void measure();
    void finish();

    const std::filesystem::path _folder;
    const bool _suppressed;
    const double _warmUp;
    const double _measured;
    std::vector<Count> _logged; // By thread.
    std::atomic<bool> _stop { false };
    double _nanoseconds = 0; // A message, by the clock on the wall.
    double _processorNanoseconds = 0; // The same in processor time of all threads.
};

} // namespace bench
