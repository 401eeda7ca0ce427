#include "foundation/uv/turn_watcher.h"
#include "foundation/uv/detail/repeated_callback.h"

namespace fn::uv {

struct TurnWatcher::Private final : SharedMember {
    Private(Loop::Private& loop, Moment moment, Task task)
        : SharedMember(loop, 2), // For user and libuv.
          _callback(std::move(task))
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
    RepeatedCallback _callback;
    bool _closed = false;
};

void TurnWatcher::Private::run()
{
    if (_closed) return;
    const auto self = hold(this);
    _callback.run();
}

void TurnWatcher::Private::close()
{
    if (std::exchange(_closed, true)) return;
    uv_close(&_handle.any, [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); });
    _callback.drop();
}

TurnWatcher::TurnWatcher(Loop& loop, Moment moment, Task callback)
    : _private(new Private(loop.internals().requireReal("A watcher of turns"), moment, std::move(callback)))
{
}

TurnWatcher::~TurnWatcher()
{
    _private->close();
    _private->release();
}

} // namespace fn::uv
