#include "core/simulation/detail/fiber.h"
#include "foundation/unhandled_exception.h"
#include <boost/context/detail/fcontext.hpp>
#include <cerrno>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif
#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace core::simulation {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t stackBytes = 2 * 1024 * 1024; // The sanitizers make frames several times as large.
#else
constexpr std::size_t stackBytes = 512 * 1024;
#endif

} // namespace

FiberStack::FiberStack() : _guard(static_cast<std::size_t>(::getpagesize())), _bytes(stackBytes)
{
    _memory =
        ::mmap(nullptr, _bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
    if (_memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "make a stack");
    ::mprotect(_memory, _guard, PROT_NONE); // The stack grows down; an overflow must fault in this page.
}

FiberStack::~FiberStack()
{
    clean(); // Memory that is mapped here later holds none of these frames.
    ::munmap(_memory, _bytes);
}

void FiberStack::clean() noexcept
{
#if defined(__SANITIZE_ADDRESS__)
    __asan_unpoison_memory_region(bottom(), size());
#endif
}

struct FiberEntry {
    static void enter(boost::context::detail::transfer_t transfer)
    {
        auto* const self = static_cast<Fiber*>(transfer.data);
        self->_context = transfer.fctx;
        self->run();
    }
};

Fiber::Fiber(std::unique_ptr<FiberStack> stack, folly::Function<void()> function)
    : _stack(std::move(stack)),
      _function(std::move(function))
{
    _stack->clean();
    _context = boost::context::detail::make_fcontext(_stack->top(), _stack->size(), FiberEntry::enter);
#if defined(__SANITIZE_THREAD__)
    _tsanFiber = __tsan_create_fiber(0);
#endif
}

Fiber::~Fiber()
{
#if defined(__SANITIZE_THREAD__)
    __tsan_destroy_fiber(_tsanFiber);
#endif
}

void Fiber::exchangeExceptions() noexcept
{
    auto* const current = reinterpret_cast<Exceptions*>(abi::__cxa_get_globals());
    std::swap(*current, _exceptions);
}

void Fiber::resume()
{
    exchangeExceptions();
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_start_switch_fiber(&_callerFakeStack, _stack->bottom(), _stack->size());
#endif
#if defined(__SANITIZE_THREAD__)
    _tsanCaller = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(_tsanFiber, 0);
#endif
    _context = boost::context::detail::jump_fcontext(_context, this).fctx;
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(_callerFakeStack, nullptr, nullptr);
#endif
    exchangeExceptions();
}

void Fiber::pause()
{
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_start_switch_fiber(_hasEnded ? nullptr : &_fakeStack, _callerBottom, _callerSize);
#endif
#if defined(__SANITIZE_THREAD__)
    __tsan_switch_to_fiber(_tsanCaller, 0);
#endif
    _context = boost::context::detail::jump_fcontext(_context, nullptr).fctx;
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(_fakeStack, &_callerBottom, &_callerSize);
#endif
}

void Fiber::run() noexcept
{
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(nullptr, &_callerBottom, &_callerSize);
#endif
    try {
        _function();
    } catch (...) {
        fn::unhandledException();
    }
    _function = {};
    _hasEnded = true;
    for (;;) pause();
}

} // namespace core::simulation
