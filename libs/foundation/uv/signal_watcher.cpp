#include "foundation/uv/signal_watcher.h"
#include "foundation/uv/detail/repeated_callback.h"
#include "foundation/uv/status.h"

namespace fn::uv {

struct SignalWatcher::Private final : SharedMember, System::SignalUser {
    Private(Loop::Private& loop, Task task) : SharedMember(loop, 2), _callback(std::move(task)) // For user and libuv.
    {
        if (loop.system()) return;
        uv_signal_init(loop.handle(), &_signal);
        _signal.data = this;
    }

    int start(int signal)
    {
        if (auto* const system = loop()->system()) {
            system->watchSignal(signal, *this);
            return 0;
        }
        const auto onSignal = [](uv_signal_t* handle, int) { static_cast<Private*>(handle->data)->signalled(); };
        return uv_signal_start(&_signal, onSignal, signal);
    }

    void close();
    void loopIsEnding() override { close(); }

private:
    void signalled() override;

    uv_signal_t _signal;
    RepeatedCallback _callback;
    bool _closed = false;
};

void SignalWatcher::Private::signalled()
{
    if (_closed) return;
    const auto self = hold(this);
    _callback.run();
}

void SignalWatcher::Private::close()
{
    if (std::exchange(_closed, true)) return;
    if (auto* const system = loop()->system()) {
        system->unwatchSignal(*this);
        release();
    } else {
        const auto onClosed = [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); };
        uv_close(reinterpret_cast<uv_handle_t*>(&_signal), onClosed);
    }
    _callback.drop();
}

SignalWatcher::SignalWatcher(Loop& loop, int signal, Task callback)
    : _private(new Private(loop.internals(), std::move(callback)))
{
    const auto code = _private->start(signal);
    if (code == 0) return;
    _private->close();
    _private->release();
    Status("watch a signal", code).throwOnError();
}

SignalWatcher::~SignalWatcher()
{
    _private->close();
    _private->release();
}

} // namespace fn::uv
