#include "foundation/run_loop.h"
#include "foundation/uv/loop_private.h"

namespace fn {
namespace {
thread_local RunLoop* current = nullptr;
}

RunLoop::~RunLoop() = default;

RunLoop* RunLoop::currentLoop() noexcept { return current; }

RunLoop* internal::exchangeCurrentLoop(RunLoop* loop) noexcept { return std::exchange(current, loop); }

RunLoop& RunLoop::defaultLoop()
{
    static auto& loop = *new uv::Loop;
    return loop;
}

} // namespace fn
