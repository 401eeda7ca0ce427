#include "foundation/uv/async.h"
#include "foundation/uv/loop_private.h"
#include "foundation/uv/status.h"

namespace fn::uv {

struct Async::Private final : SharedMember {
    Private(Loop::Private& loop, Task task) : SharedMember(loop, 2), _callback(std::move(task)) // Its user and libuv.
    {
        _async.data = this;
        const auto onSent = [](uv_async_t* async) { static_cast<Private*>(async->data)->run(); };
        uv_async_init(loop.handle(), &_async, onSent); // Can not fail: the loop's own has opened the descriptor.
    }

    void send();
    void close();
    void loopIsEnding() override { close(); }

private:
    void run();

    uv_async_t _async;
    Task _callback; // Out of its place while it runs.
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
    Task callback = std::exchange(_callback, {});
    if (!callback) return;
    callGuarded(callback);
    if (!_closed) _callback = std::move(callback);
}

void Async::Private::close()
{
    {
        const std::lock_guard guard(_lock);
        if (std::exchange(_closed, true)) return;
    }
    const auto onClosed = [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); };
    uv_close(reinterpret_cast<uv_handle_t*>(&_async), onClosed);
    const auto callback = std::exchange(_callback, {}); // Goes last: its end may do anything.
}

Async::Async(Loop& loop, Task callback) : _private(new Private(loop.internals(), std::move(callback))) { }

Async::~Async()
{
    _private->close();
    _private->release();
}

void Async::send() { _private->send(); }

} // namespace fn::uv
