#include "foundation/uv/poll.h"
#include "foundation/uv/detail/watcher.h"
#include "foundation/uv/status.h"

namespace fn::uv {

struct Poll::Private final : Watcher {
    Private(Loop::Private& loop, Task task, Event event)
        : Watcher(loop, std::move(task)),
          _events(event == Event::Readable ? UV_READABLE : UV_WRITABLE)
    {
    }

    int start(int descriptor)
    {
        const int code = uv_poll_init(loop()->handle(), &_poll, descriptor);
        _isOpen = code == 0;
        _poll.data = this;
        return _isOpen ? listen() : code;
    }

private:
    int listen();
    void onEvent(int status);
    void closeHandle() override;

    uv_poll_t _poll;
    const int _events;
    bool _isOpen = false; // libuv knows `_poll`.
};

int Poll::Private::listen()
{
    return uv_poll_start(&_poll, _events,
        [](uv_poll_t* handle, int status, int) { static_cast<Private*>(handle->data)->onEvent(status); });
}

void Poll::Private::onEvent(int status)
{
    const auto self = hold(this);
    run();
    if (status < 0 && !isClosed()) listen(); // libuv stops watching at an error.
}

void Poll::Private::closeHandle()
{
    if (_isOpen)
        closeLater(reinterpret_cast<uv_handle_t*>(&_poll));
    else
        release();
}

Poll::Poll(Loop& loop, int descriptor, Task callback, Event event)
    : _private(new Private(loop.internals().requireReal("A watched descriptor"), std::move(callback), event))
{
    const auto code = _private->start(descriptor);
    if (code == 0) return;
    _private->end();
    Status("watch a descriptor", code).throwOnError();
}

Poll::~Poll() { _private->end(); }

} // namespace fn::uv
