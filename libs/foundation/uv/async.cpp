#include "foundation/uv/async.h"
#include "foundation/uv/detail/repeated_callback.h"
#include "foundation/uv/status.h"

namespace fn::uv {

struct Async::Private final : SharedMember {
    Private(Loop::Private& loop, Task task) : SharedMember(loop, 2), _callback(std::move(task)) // For user and libuv.
    {
        _async.data = this;
        const auto onSent = [](uv_async_t* async) { static_cast<Private*>(async->data)->run(); };
        uv_async_init(loop.handle(), &_async, onSent); // Cannot fail: the loop's `_wake` has opened the descriptor.
    }

    void send();
    void close();
    void loopIsEnding() override { close(); }

private:
    void run();

    uv_async_t _async;
    RepeatedCallback _callback;
    std::mutex _lock; // Senders may be on any thread.
    bool _closed = false; // Written by the loop's thread, under `_lock`.
};

void Async::Private::send()
{
    const std::lock_guard guard(_lock);
    if (!_closed) uv_async_send(&_async);
}

void Async::Private::run()
{
    if (_closed) return;
    {
        // `uv_async_send()` does nothing, not even order memory, while an earlier send is pending. The lock orders it: a sender has
        // either held the lock before, and its writes are visible here, or it comes later and wakes the loop once more.
        const std::lock_guard guard(_lock);
    }
    const auto self = hold(this);
    _callback.run();
}

void Async::Private::close()
{
    {
        const std::lock_guard guard(_lock);
        if (std::exchange(_closed, true)) return;
    }
    const auto onClosed = [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); };
    uv_close(reinterpret_cast<uv_handle_t*>(&_async), onClosed);
    _callback.drop();
}

Async::Async(Loop& loop, Task callback)
    : _private(new Private(loop.internals().requireReal("A wake-up"), std::move(callback)))
{
}

Async::~Async()
{
    _private->close();
    _private->release();
}

void Async::send() { _private->send(); }

} // namespace fn::uv
