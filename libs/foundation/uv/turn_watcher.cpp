#include "foundation/uv/turn_watcher.h"
#include "foundation/uv/loop_private.h"

namespace fn::uv {

struct TurnWatcher::Private final : SharedMember {
    Private(Loop::Private& loop, Moment moment, Task task)
        : SharedMember(loop, 2),
          _callback(std::move(task)) // Its user and libuv.
    {
        if (moment == Moment::BeforePoll) {
            uv_prepare_init(loop.handle(), &_handle.prepare);
            uv_prepare_start(
                &_handle.prepare, [](uv_prepare_t* handle) { static_cast<Private*>(handle->data)->run(); });
        } else {
            uv_check_init(loop.handle(), &_handle.check);
            uv_check_start(&_handle.check, [](uv_check_t* handle) { static_cast<Private*>(handle->data)->run(); });
        }
        _handle.any.data = this;
    }

    void close();
    void loopIsEnding() override { close(); }

private:
    void run();

    union {
        uv_handle_t any;
        uv_prepare_t prepare;
        uv_check_t check;
    } _handle;
    Task _callback; // Stays in its place while it runs: it may run the loop, and is then called again inside.
    int _depth = 0; // Of calls.
    bool _closed = false;
};

void TurnWatcher::Private::run()
{
    if (_closed) return;
    const auto self = hold(this);
    ++_depth;
    callGuarded(_callback);
    if (--_depth > 0 || !_closed) return;
    const auto callback = std::exchange(_callback, {}); // Goes before this object: its end may do anything.
}

void TurnWatcher::Private::close()
{
    if (std::exchange(_closed, true)) return;
    uv_close(&_handle.any, [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); });
    if (_depth > 0) return; // run() frees it.
    const auto callback = std::exchange(_callback, {}); // Goes last: its end may do anything.
}

TurnWatcher::TurnWatcher(Loop& loop, Moment moment, Task callback)
    : _private(new Private(loop.internals(), moment, std::move(callback)))
{
}

TurnWatcher::~TurnWatcher()
{
    _private->close();
    _private->release();
}

} // namespace fn::uv
