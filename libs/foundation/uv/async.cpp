#include "foundation/uv/async.h"
#include "foundation/uv/detail/watcher.h"

namespace fn::uv {

struct Async::Private final : Watcher {
    Private(Loop::Private& loop, Task task) : Watcher(loop, std::move(task))
    {
        _async.data = this;
        const auto onSent = [](uv_async_t* async) { static_cast<Private*>(async->data)->onSent(); };
        uv_async_init(loop.handle(), &_async, onSent); // Cannot fail: the loop's `_wake` has opened the descriptor.
    }

    void send();

private:
    void onSent();
    void closeHandle() override;

    uv_async_t _async;
    std::mutex _lock; // Senders may be on any thread.
    bool _isOpen = true; // Guarded by `_lock`.
};

void Async::Private::send()
{
    const std::lock_guard guard(_lock);
    if (_isOpen) uv_async_send(&_async);
}

void Async::Private::onSent()
{
    {
        // `uv_async_send()` does nothing, not even order memory, while an earlier send is pending. The lock orders it: a sender has
        // either held the lock before, and its writes are visible here, or it comes later and wakes the loop once more.
        const std::lock_guard guard(_lock);
    }
    run();
}

void Async::Private::closeHandle()
{
    {
        const std::lock_guard guard(_lock);
        _isOpen = false;
    }
    closeLater(reinterpret_cast<uv_handle_t*>(&_async));
}

Async::Async(Loop& loop, Task callback)
    : _private(new Private(loop.internals().requireReal("A wake-up"), std::move(callback)))
{
}

Async::~Async() { _private->end(); }

void Async::send() { _private->send(); }

} // namespace fn::uv
