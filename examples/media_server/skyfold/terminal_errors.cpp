#include "skyfold/terminal_errors.h"
#include "core/services/console_log_post_processor.h"
#include "foundation/system/environment.h"
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <unistd.h>

namespace media {
namespace {

constexpr const char* eraseLine = "\r\033[K";
constexpr const char* lastLine = "\x1d"
                                 "end of the program\n"; // Nobody else writes this.
constexpr auto drainTime = std::chrono::seconds(1);

struct Drained {
    std::mutex mutex;
    std::condition_variable changed;
    bool is = false;
};

/// The thread that sees the lines may outlive every destructor.
Drained& drained()
{
    static auto& drained = *new Drained;
    return drained;
}

void tidy(fn::String& line)
{
    if (line != lastLine) {
        line = eraseLine + line;
        return;
    }
    line = fn::String();
    const std::lock_guard guard(drained().mutex);
    drained().is = true;
    drained().changed.notify_all();
}

bool showsABar()
{
    return ::isatty(STDOUT_FILENO) && ::isatty(STDERR_FILENO)
        && fn::Environment::get("TERM").value_or("dumb") != "dumb";
}

} // namespace

TerminalErrors::TerminalErrors() : _isActive(showsABar())
{
    if (!_isActive) return;
    drained(); // Made on this thread.
    core::ConsoleLogPostProcessor::registerStandardErrorCallback(tidy);
    core::ConsoleLogPostProcessor::init();
}

TerminalErrors::~TerminalErrors()
{
    if (!_isActive) return;
    std::fputs(lastLine, stderr);
    std::unique_lock guard(drained().mutex);
    drained().changed.wait_for(guard, drainTime, [] { return drained().is; });
}

} // namespace media
