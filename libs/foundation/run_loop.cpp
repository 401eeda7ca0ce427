#include "foundation/run_loop.h"
#include "foundation/system/process_local.h"
#include "foundation/uv/detail/loop_private.h"

namespace fn {
namespace {
[[gnu::tls_model("initial-exec")]] thread_local RunLoop* current = nullptr;
thread_local int ending = 0;
} // namespace

RunLoop::~RunLoop() = default;

RunLoop* RunLoop::currentLoop() noexcept { return current; }

RunLoop* internal::exchangeCurrentLoop(RunLoop* loop) noexcept { return std::exchange(current, loop); }

int& internal::endingLoops() noexcept { return ending; }

RunLoop& RunLoop::defaultLoop()
{
    static ProcessLocal<uv::Loop> loop;
    return loop.get();
}

} // namespace fn
