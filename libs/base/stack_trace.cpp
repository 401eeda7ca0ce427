#include "base/stack_trace.h"
#include "base/detail/symbolizer.h"
#include <algorithm>
#include <array>
#include <execinfo.h>

namespace fn {
namespace {

constexpr int maximumFrames = 64;

// The first backtrace() of a process loads the unwinder, which allocates and locks: better done here than in a throw.
[[maybe_unused]] const bool unwinderLoaded = [] {
    void* frame = nullptr;
    return backtrace(&frame, 1) == 1;
}();

} // namespace

[[gnu::noinline]] CapturedStackTrace CapturedStackTrace::capture(int skipFrames)
{
    std::array<void*, maximumFrames> frames;
    const auto end = frames.begin() + backtrace(frames.data(), maximumFrames);
    // The number of frames below the caller differs between builds.
    auto first = std::find(frames.begin(), end, __builtin_return_address(0));
    if (first == end) first = frames.begin();
    CapturedStackTrace trace;
    trace._addresses.assign(first + std::min<std::ptrdiff_t>(skipFrames, end - first), end);
    return trace;
}

ResolvedStackTrace CapturedStackTrace::resolve() const
{
    ResolvedStackTrace trace;
    try {
        trace.frames = internal::resolveAddresses(_addresses);
    } catch (const std::bad_alloc&) {
        // No memory for the trace: the exception goes on without it.
    }
    return trace;
}

} // namespace fn
