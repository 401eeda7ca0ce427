#include "core/ipc/object/object_instance.h"
#include "core/ipc/registry.h"
#include "core/ipc/worker/idle_termination_private.h"
#include "core/ipc/worker/worker.h"
#include "foundation/time/clock.h"

namespace ipc {
namespace {

constexpr auto idleTime = fn::Duration::seconds(600);
constexpr auto hiddenTime = fn::Duration::seconds(1);

} // namespace

bool IdleTermination::wantsTermination() const
{
    return _worker._isConnected && _worker._hasOwnProcess && _worker._delegate.wantsIdleTermination(_worker);
}

/// An instance that only the registry holds from outside keeps nobody busy.
bool IdleTermination::isBusy() const
{
    return _worker._objectManager->anyInstance([&](ObjectInstance& instance) {
        if (instance.usageCount() > 1) return true;
        return instance.usageCount() == 1 && !_worker._registry->isInstanceRegistered(fn::AutoPtr(&instance));
    });
}

bool IdleTermination::canTerminate() const
{
    return wantsTermination() && !isBusy() && _worker._delegate.workerCanTerminate(_worker);
}

void IdleTermination::scheduleTermination()
{
    if (_terminating || !wantsTermination()) return stop();
    _lastActivity = _worker._loop.clock().monotonic();
    if (!_idleTimer) startTimer(idleTime);
}

void IdleTermination::startTimer(fn::Duration delay)
{
    _idleTimer = _worker._loop.schedule(delay, [this] { onTimer(); });
}

void IdleTermination::onTimer()
{
    _idleTimer = {};
    const auto idle = _worker._loop.clock().monotonic() - _lastActivity;
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
    // The continuations may outlive the worker, and this object with it; the object manager tells.
    _worker._registry->setInstancesHidden(true).then(
        [this, manager = _worker._objectManager] {
            if (!manager->worker()) return;
            manager->loop()
                .schedule(hiddenTime,
                    [this, manager] {
                        if (manager->worker()) secondStage();
                    })
                .detach();
        },
        [this, manager = _worker._objectManager](std::exception_ptr) {
            if (manager->worker()) giveUp();
        });
}

void IdleTermination::secondStage()
{
    if (canTerminate()) {
        _worker._delegate.workerRequestsTermination(_worker);
        return;
    }
    const auto manager = _worker._objectManager;
    _worker._registry->setInstancesHidden(false).then(
        [this, manager] {
            if (manager->worker()) giveUp();
        },
        [this, manager](std::exception_ptr) {
            if (manager->worker()) giveUp();
        });
}

void IdleTermination::giveUp()
{
    _terminating = false;
    scheduleTermination();
}

} // namespace ipc
