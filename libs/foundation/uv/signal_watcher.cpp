#include "foundation/uv/signal_watcher.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/status.h"
#include <uv.h>

namespace fn::uv {

struct SignalWatcher::Private {
    uv_signal_t handle;
    Task callback;
};

SignalWatcher::SignalWatcher(Loop& loop, int signal, Task callback) : _private(new Private { {}, std::move(callback) })
{
    uv_signal_init(loop.uvHandle(), &_private->handle);
    _private->handle.data = _private;
    const auto code = uv_signal_start(
        &_private->handle,
        [](uv_signal_t* handle, int) {
            try {
                static_cast<Private*>(handle->data)->callback();
            } catch (...) {
                unhandledException();
            }
        },
        signal);
    uv_unref(reinterpret_cast<uv_handle_t*>(&_private->handle));
    if (code == 0) return;
    uv_close(reinterpret_cast<uv_handle_t*>(&_private->handle),
        [](uv_handle_t* handle) { delete static_cast<Private*>(handle->data); });
    Status("Watching a signal", code).throwOnError();
}

SignalWatcher::~SignalWatcher()
{
    uv_signal_stop(&_private->handle);
    uv_close(reinterpret_cast<uv_handle_t*>(&_private->handle),
        [](uv_handle_t* handle) { delete static_cast<Private*>(handle->data); });
}

} // namespace fn::uv
