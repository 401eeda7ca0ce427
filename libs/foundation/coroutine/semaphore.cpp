#include "foundation/coroutine/semaphore.h"
#include "foundation/coroutine/waiting_line.h"

namespace fn {

struct Semaphore::State : std::enable_shared_from_this<State> {
    explicit State(std::size_t permits) : free(permits) { }

    void giveBack()
    {
        ++free;
        if (!line || line->empty() || std::exchange(isServing, true)) return;
        internal::PromiseNodeBase::post([self = shared_from_this()] { self->serve(); });
    }

    void serve()
    {
        isServing = false;
        while (free > 0 && line && !line->empty()) line->takeFirst().fulfill(take());
    }

    Permit take()
    {
        --free;
        return Permit(shared_from_this());
    }

    std::size_t free;
    bool isServing = false; // A task is on its way.
    std::optional<internal::WaitingLine<Permit>> line { std::in_place }; // Until the semaphore's end.
};

Semaphore::Permit& Semaphore::Permit::operator=(Permit&& other) noexcept
{
    const Permit givenBack(std::exchange(_state, std::move(other._state)));
    return *this;
}

Semaphore::Permit::~Permit()
{
    if (_state) _state->giveBack();
}

Semaphore::Semaphore(std::size_t permits) : _state(std::make_shared<State>(permits)) { }

Semaphore::~Semaphore() { _state->line.reset(); }

Promise<Semaphore::Permit> Semaphore::acquire()
{
    if (_state->free == 0 || !_state->line->empty()) return _state->line->join();
    return Promise<Permit>::fulfilled(_state->take());
}

} // namespace fn
