#include "foundation/uv/turn_watcher.h"
#include "foundation/uv/detail/watcher.h"

namespace fn::uv {

struct TurnWatcher::Private final : Watcher {
    Private(Loop::Private& loop, Moment moment, Task task) : Watcher(loop, std::move(task))
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

private:
    void closeHandle() override { closeLater(&_handle.any); }

    union {
        uv_handle_t any;
        uv_prepare_t prepare;
        uv_check_t check;
    } _handle;
};

TurnWatcher::TurnWatcher(Loop& loop, Moment moment, Task callback)
    : _private(new Private(loop.internals().requireReal("A watcher of turns"), moment, std::move(callback)))
{
}

TurnWatcher::~TurnWatcher() { _private->end(); }

} // namespace fn::uv
