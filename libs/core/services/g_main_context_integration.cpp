#include "core/services/g_main_context_integration.h"
#include "core/services/detail/context_wait.h"
#include "foundation/assertion.h"
#include "foundation/system/thread_pool.h"
#include "foundation/uv/turn_watcher.h"
#include <optional>

namespace core {
/// The cycle, with one wait out at a time:
///
///     doPrepare --task--> pool waits --wake-up--> pollDone ---> doCheck, which dispatches ---> doPrepare of the next turn
///     polling             polling                 poll done     neither
struct GMainContextIntegration::Private final : fn::RefCountedObject {
    explicit Private(fn::uv::Loop& loop);

    GMainContext* context() const { return _context; }
    void close();

private:
    void doPrepare();
    void doCheck();
    void pollDone();

    GMainContext* const _context = g_main_context_default();
    std::optional<fn::uv::TurnWatcher> _prepareWatcher;
    std::optional<fn::uv::Async> _pollDoneWakeUp;
    std::optional<fn::uv::Async> _extraWakeUp; // Makes the loop turn once more.
    std::optional<fn::uv::TurnWatcher> _checkWatcher;
    bool _polling = false; // A wait is on the pool.
    bool _pollDone = false; // The wait has ended, and its results wait for doCheck().
    std::shared_ptr<ContextWait> _wait; // Shared with the task on the pool.
};

GMainContextIntegration::Private::Private(fn::uv::Loop& loop)
{
    using fn::uv::TurnWatcher;
    _prepareWatcher.emplace(loop, TurnWatcher::Moment::BeforePoll, [this] { doPrepare(); });
    _pollDoneWakeUp.emplace(loop, [this] { pollDone(); });
    _extraWakeUp.emplace(loop, [] {});
    _checkWatcher.emplace(loop, TurnWatcher::Moment::AfterPoll, [this] { doCheck(); });
    _wait = std::make_shared<ContextWait>(_context, *_pollDoneWakeUp);
}

void GMainContextIntegration::Private::close()
{
    _wait->abandon();
    _prepareWatcher.reset();
    _pollDoneWakeUp.reset();
    _extraWakeUp.reset();
    _checkWatcher.reset();
}

void GMainContextIntegration::Private::doPrepare()
{
    if (_polling || _pollDone) return;
    const fn::AutoPtr self(this); // A function of a GLib source may destroy this object.
    _polling = true;
    try {
        _wait->prepare();
        if (!_prepareWatcher) return;
        fn::ThreadPool::defaultPool().schedule([wait = _wait] { wait->wait(); });
    } catch (...) {
        _polling = false;
        throw;
    }
}

void GMainContextIntegration::Private::pollDone()
{
    if (!_polling || !_wait->isOver()) return;
    _polling = false;
    _pollDone = true;
    _extraWakeUp->send();
}

void GMainContextIntegration::Private::doCheck()
{
    _pollDone = false;
    if (_polling) return;
    const fn::AutoPtr self(this); // A callback may destroy this object.
    _wait->checkAndDispatch();
}

GMainContextIntegration* GMainContextIntegration::_instance = nullptr;
int GMainContextIntegration::_refCount = 0;

GMainContextIntegration::GMainContextIntegration(fn::uv::Loop& loop) : _private(fn::makeAuto<Private>(loop)) { }

GMainContextIntegration::~GMainContextIntegration() { _private->close(); }

void GMainContextIntegration::init(fn::uv::Loop& loop)
{
    if (!_instance) _instance = new GMainContextIntegration(loop);
    ++_refCount;
}

void GMainContextIntegration::quit()
{
    if (!FN_ASSERT(_refCount > 0, fn::sites::integrationIsRunning)) return;
    if (--_refCount == 0) delete std::exchange(_instance, nullptr);
}

GMainContextIntegration* GMainContextIntegration::instance() noexcept { return _instance; }

GMainContext* GMainContextIntegration::context() { return _private->context(); }

} // namespace core
