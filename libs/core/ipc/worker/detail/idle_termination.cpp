#include "core/ipc/worker/detail/idle_termination.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/registry.h"
#include "core/ipc/worker/detail/worker_object_manager.h"
#include "foundation/time/clock.h"

namespace ipc {
namespace {

constexpr auto idleTime = fn::Duration::seconds(600);
constexpr auto hiddenTime = fn::Duration::seconds(1);

} // namespace

bool IdleTermination::wantsTermination() const
{
    return _worker.isConnected() && _hasOwnProcess && _delegate.wantsIdleTermination(_worker);
}

/// Whether another worker uses an instance; for a registered one the registry's own use does not count.
bool IdleTermination::isBusy() const
{
    return managerOf(_worker).anyInstance([&](ObjectInstance& instance) {
        if (instance.usageCount() > 1) return true;
        return instance.usageCount() == 1 && !_worker.registry()->isInstanceRegistered(fn::AutoPtr(&instance));
    });
}

bool IdleTermination::canTerminate() const
{
    return wantsTermination() && !isBusy() && _delegate.workerCanTerminate(_worker);
}

void IdleTermination::scheduleTermination()
{
    if (_terminating || !wantsTermination()) return stop();
    _lastActivity = _worker.loop().clock().monotonic();
    if (!_idleTimer) startTimer(idleTime);
}

void IdleTermination::startTimer(fn::Duration delay)
{
    _idleTimer = _worker.loop().schedule(delay, [this] { onTimer(); });
}

void IdleTermination::onTimer()
{
    _idleTimer = {};
    const auto idle = _worker.loop().clock().monotonic() - _lastActivity;
    if (idle < idleTime)
        startTimer(idleTime - idle);
    else
        startTermination();
}

void IdleTermination::startTermination()
{
    if (!canTerminate()) {
        scheduleTermination();
        return;
    }
    _terminating = true;
    _worker.registry()->setInstancesHidden(true).then(_lifetime.guard([this] {
        _worker.loop().schedule(hiddenTime, _lifetime.guard([this] { secondStage(); })).detach();
    }),
        _lifetime.guard([this](std::exception_ptr) { giveUp(); }));
}

void IdleTermination::secondStage()
{
    if (canTerminate()) {
        _delegate.workerRequestsTermination(_worker); // The instances stay hidden, since the worker is about to end.
        return;
    }
    _worker.registry()->setInstancesHidden(false).then(
        _lifetime.guard([this] { giveUp(); }), _lifetime.guard([this](std::exception_ptr) { giveUp(); }));
}

void IdleTermination::giveUp()
{
    _terminating = false;
    scheduleTermination();
}

} // namespace ipc
