#include "foundation/uv/signal_watcher.h"
#include "foundation/uv/detail/watcher.h"
#include "foundation/uv/status.h"
#include <csignal>

namespace fn::uv {

struct SignalWatcher::Private final : Watcher, System::SignalUser {
    Private(Loop::Private& loop, Task task) : Watcher(loop, std::move(task))
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

private:
    void signalled() override { run(); }
    void closeHandle() override;

    uv_signal_t _signal;
};

void SignalWatcher::Private::closeHandle()
{
    if (auto* const system = loop()->system()) {
        system->unwatchSignal(*this);
        release();
    } else {
        closeLater(reinterpret_cast<uv_handle_t*>(&_signal));
    }
}

SignalWatcher::SignalWatcher(Loop& loop, int signal, Task callback)
    : _private(new Private(loop.internals(), std::move(callback)))
{
    const auto code = _private->start(signal);
    if (code == 0) return;
    _private->end();
    Status("watch a signal", code).throwOnError();
}

SignalWatcher::~SignalWatcher() { _private->end(); }

bool SignalWatcher::isIgnored(int signal) noexcept
{
    struct sigaction action = {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace fn::uv
