#pragma once
#include <cstddef>
#include <cxxabi.h>
#include <folly/Function.h>
#include <memory>

namespace core::simulation {

/// The stack of one simulated process.
class FiberStack {
public:
    FiberStack();
    FiberStack(const FiberStack&) = delete;
    ~FiberStack();

    void* top() const noexcept { return static_cast<char*>(_memory) + _bytes; }
    void* bottom() const noexcept { return static_cast<char*>(_memory) + _guard; } ///< The lowest usable address.
    std::size_t size() const noexcept { return _bytes - _guard; }
    void clean() noexcept; ///< Tells the sanitizers to forget the frames of the stack's last owner.

private:
    std::size_t _guard = 0;
    std::size_t _bytes = 0;
    void* _memory = nullptr;
};

/// A function that runs on a stack of its own until it pauses, and goes on there when it is resumed. One thread.
class Fiber {
public:
    Fiber(std::unique_ptr<FiberStack> stack, folly::Function<void()> function);
    Fiber(const Fiber&) = delete;
    ~Fiber(); ///< Destroys no object on the stack: the function should have ended.

    /// Runs the function until it pauses or ends. To be called on the thread's own stack.
    void resume();

    /// Goes back to the caller of `resume()`. To be called on the fiber's stack.
    void pause();

private:
    // The C++ runtime's record of a thread's exceptions. It is exchanged, since each fiber handles exceptions of its own.
    struct Exceptions {
        void* caught = nullptr;
        unsigned int uncaught = 0;
    };

    [[noreturn]] void run() noexcept;
    void exchangeExceptions() noexcept;

    std::unique_ptr<FiberStack> _stack;
    folly::Function<void()> _function;
    void* _context = nullptr; // The stack pointer of the side that does not run now.
    Exceptions _exceptions;
    bool _hasEnded = false;

    // For the sanitizers.
    [[maybe_unused]] void* _fakeStack = nullptr;
    [[maybe_unused]] void* _callerFakeStack = nullptr;
    [[maybe_unused]] const void* _callerBottom = nullptr;
    [[maybe_unused]] std::size_t _callerSize = 0;
    [[maybe_unused]] void* _tsanFiber = nullptr;
    [[maybe_unused]] void* _tsanCaller = nullptr;

    friend struct FiberEntry;
};

} // namespace core::simulation
