#pragma once
#include "foundation/coroutine/waiting_line.h"
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>

namespace fn {

/// Takes values from one coroutine to another, in order; each one is received once.
///
/// Who waits goes on in a task of its own, never inside the call that it waited for. Belongs to the thread of one run loop.
template <typename T> class Channel {
public:
    /// `capacity`: how many values may be on their way before a sender has to wait. With 0 it waits for its own one to be received.
    explicit Channel(std::size_t capacity) : _state(std::make_shared<State>(capacity)) { }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    ~Channel() ///< `close()`. A sender that waits gets a `fn::PromiseLostException`.
    {
        close();
        _state->senders.reset();
    }

    /// The value is on its way when this returns, also where the promise, which is fulfilled when there is room for the next value,
    /// is cancelled. Rejected with a `fn::EndedException` where the channel is closed.
    Promise<void> send(T value)
    {
        if (_state->isClosed)
            return Promise<void>::rejected(std::make_exception_ptr(EndedException("The channel is closed")));
        _state->values.push_back(std::move(value));
        _state->serveLater();
        return _state->values.size() <= _state->capacity ? Promise<void>::fulfilled() : _state->senders->join();
    }

    /// The next value; none where the channel is closed and all have been received. Cancelling it gives up the place in the line.
    Promise<std::optional<T>> receive()
    {
        if (!_state->receivers.empty() || !_state->hasSomething()) return _state->receivers.join();
        auto first = _state->takeFirst();
        _state->serveLater(); // There may be room for a sender.
        return Promise<std::optional<T>>::fulfilled(std::move(first));
    }

    /// No more values are taken. What was sent before is still received; then receivers get none.
    void close()
    {
        _state->isClosed = true;
        _state->serveLater();
    }

private:
    struct State : std::enable_shared_from_this<State> {
        explicit State(std::size_t limit) : capacity(limit) { }

        bool hasSomething() const noexcept { return isClosed || !values.empty(); }
        bool hasRoom() const noexcept { return senders && !senders->empty() && values.size() <= capacity; }

        std::optional<T> takeFirst()
        {
            std::optional<T> first;
            if (values.empty()) return first;
            first.emplace(std::move(values.front()));
            values.pop_front();
            return first;
        }

        void serveLater()
        {
            if ((!receivers.empty() || hasRoom()) && !std::exchange(isServing, true))
                internal::PromiseNodeBase::post([self = this->shared_from_this()] { self->serve(); });
        }

        void serve()
        {
            isServing = false;
            while (!receivers.empty() && hasSomething()) receivers.takeFirst().fulfill(takeFirst());
            while (hasRoom()) senders->takeFirst().fulfill();
        }

        const std::size_t capacity;
        bool isClosed = false;
        bool isServing = false; // A task is on its way.
        std::deque<T> values;
        internal::WaitingLine<std::optional<T>> receivers;
        std::optional<internal::WaitingLine<void>> senders { std::in_place }; // Until the channel's end.
    };

    std::shared_ptr<State> _state;
};

} // namespace fn
