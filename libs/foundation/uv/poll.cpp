#include "foundation/uv/poll.h"
#include "foundation/uv/detail/repeated_callback.h"
#include "foundation/uv/status.h"

namespace fn::uv {

struct Poll::Private final : SharedMember {
    Private(Loop::Private& loop, Task task, Event event)
        : SharedMember(loop, 2), // For user and libuv.
          _callback(std::move(task)),
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

    void close();
    void loopIsEnding() override { close(); }

private:
    int listen();
    void run(int status);

    uv_poll_t _poll;
    RepeatedCallback _callback;
    const int _events;
    bool _isOpen = false; // libuv knows `_poll`.
    bool _closed = false;
};

int Poll::Private::listen()
{
    const auto onEvent = [](uv_poll_t* handle, int status, int) { static_cast<Private*>(handle->data)->run(status); };
    return uv_poll_start(&_poll, _events, onEvent);
}

void Poll::Private::run(int status)
{
    if (_closed) return;
    const auto self = hold(this);
    _callback.run();
    if (status < 0 && !_closed) listen(); // libuv stops watching at an error.
}

void Poll::Private::close()
{
    if (std::exchange(_closed, true)) return;
    if (_isOpen)
        uv_close(reinterpret_cast<uv_handle_t*>(&_poll),
            [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); });
    else
        release();
    _callback.drop();
}

Poll::Poll(Loop& loop, int descriptor, Task callback, Event event)
    : _private(new Private(loop.internals().requireReal("A watched descriptor"), std::move(callback), event))
{
    const auto code = _private->start(descriptor);
    if (code == 0) return;
    _private->close();
    _private->release();
    Status("watch a descriptor", code).throwOnError();
}

Poll::~Poll()
{
    _private->close();
    _private->release();
}

} // namespace fn::uv
