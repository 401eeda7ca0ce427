#pragma once
#include "foundation/promise.h"
#include <cstddef>
#include <memory>

namespace fn {

/// Lets so many go on at a time, in the order in which they asked: `const auto permit = co_await four.acquire();`
///
/// Who waits goes on in a task of its own, never inside what gives a permit back. Belongs to the thread of one run loop.
class FN_EXPORT Semaphore {
    struct State;

public:
    /// The right to go on, given back by its end. It may outlive the semaphore.
    class FN_EXPORT Permit {
    public:
        Permit() noexcept = default; ///< None.
        Permit(Permit&&) noexcept = default;
        Permit& operator=(Permit&& other) noexcept;
        ~Permit();

    private:
        friend Semaphore;
        explicit Permit(std::shared_ptr<State> state) noexcept : _state(std::move(state)) { }
        std::shared_ptr<State> _state;
    };

    explicit Semaphore(std::size_t permits); ///< How many may go on at a time.
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    ~Semaphore(); ///< Who still waits gets a `fn::PromiseLostException`.

    Promise<Permit> acquire(); ///< Cancelling it gives up the place in the line.

private:
    std::shared_ptr<State> _state;
};

} // namespace fn
