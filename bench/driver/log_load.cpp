#include "driver/log_load.h"
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <fstream>

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

/// Of all threads of this process so far.
double processorNanoseconds()
{
    timespec time = {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

void pause(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

std::filesystem::path makeFolder(const std::string& directory)
{
    auto folder = std::filesystem::path(directory) / "logs";
    std::filesystem::create_directories(folder);
    return folder;
}

/// What is found in log files.
struct Lines {
    explicit Lines(std::size_t threads) : next(threads) { }

    void read(const std::filesystem::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        for (std::string line; std::getline(file, line);) readLine(line);
    }

    void readLine(std::string_view line)
    {
        const auto start = line.find("message ");
        if (start == std::string_view::npos) return; // A separator of the library's own.
        unsigned thread = 0;
        unsigned long long number = 0;
        if (std::sscanf(line.data() + start, "message %u %llu", &thread, &number) != 2 || thread >= next.size()
            || line.find(", end", start) == std::string_view::npos) {
            fail(fmt::format("not a line of ours: {}", line));
        }
        ++count;
        bytes += line.size() + 1;
        next[thread] = std::max<std::uint64_t>(next[thread], number + 1);
    }

    std::uint64_t count = 0;
    std::uint64_t bytes = 0;
    std::vector<std::uint64_t> next; // By thread: beyond the highest number.
};

} // namespace

LogLoad::LogLoad(const Options& options)
    : _folder(makeFolder(options.text("directory"))),
      _suppressed(options.count("suppressed") != 0),
      _warmUp(options.seconds("warmup")),
      _measured(options.seconds("seconds")),
      _logged(options.count("threads"))
{
}

std::uint64_t LogLoad::logged() const
{
    std::uint64_t sum = 0;
    for (const auto& thread : _logged) sum += thread.count.load(std::memory_order_relaxed);
    return sum;
}

void LogLoad::measure()
{
    pause(_warmUp);
    const auto before = logged();
    const auto start = Clock::now();
    const auto processorStart = processorNanoseconds();
    pause(_measured);
    const auto messages = logged() - before;
    const auto processor = processorNanoseconds() - processorStart;
    const std::chrono::duration<double, std::nano> elapsed = Clock::now() - start;
    if (messages == 0) fail("nothing was logged");
    _nanoseconds = elapsed.count() / static_cast<double>(messages);
    _processorNanoseconds = processor / static_cast<double>(messages);
}

void LogLoad::finish()
{
    Lines lines(_logged.size());
    for (const auto& entry : std::filesystem::directory_iterator(_folder)) lines.read(entry.path());
    for (std::size_t thread = 0; thread < _logged.size(); ++thread) {
        const auto expected = _suppressed ? 0 : _logged[thread].count.load();
        if (lines.next[thread] != expected) {
            fail(fmt::format(
                "thread {} has logged {} messages, and {} are in the files", thread, expected, lines.next[thread]));
        }
    }
    const auto bytesPerLine =
        static_cast<double>(lines.bytes) / static_cast<double>(std::max<std::uint64_t>(lines.count, 1));
    report({ { "nanoseconds", _nanoseconds }, { "processor_nanoseconds", _processorNanoseconds },
        { "bytes", bytesPerLine } });
}

} // namespace bench
