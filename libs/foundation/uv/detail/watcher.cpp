#include "foundation/uv/detail/watcher.h"

namespace fn::uv {

void Watcher::end()
{
    close();
    release();
}

void Watcher::run()
{
    if (_closed) return;
    const auto self = hold(this);
    ++_depth;
    callGuarded(_task);
    if (--_depth == 0 && _closed) freeCallback();
}

void Watcher::close()
{
    if (std::exchange(_closed, true)) return;
    closeHandle();
    if (_depth == 0) freeCallback(); // Last: the callback's destructor may run any code.
}

void Watcher::freeCallback() { const auto freed = std::exchange(_task, {}); }

void Watcher::closeLater(uv_handle_t* handle)
{
    handle->data = this;
    uv_close(handle, [](uv_handle_t* closed) { static_cast<Watcher*>(closed->data)->release(); });
}

} // namespace fn::uv
