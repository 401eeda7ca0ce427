#include "core/ipc/detail/message_bus_impl.h"
#include "core/ipc/detail/registry_impl.h"
#include "core/ipc/dispatcher/detail/hub.h"
#include "core/ipc/dispatcher/detail/worker_connection.h"
#include "core/ipc/message_bus.h"
#include "core/ipc/registry.h"
#include "core/ipc/worker/detail/worker_object_manager.h"
#include "foundation/assertion.h"

// The dispatcher's own worker: the objects it hosts, and the message bus of its process.

namespace ipc {

void Hub::workerDidConnect(Worker& worker)
{
    _registry = fn::makeAuto<RegistryImpl>(worker);
    FN_ASSERT(_registry->objectId() == REGISTRY_OBJECT_ID, fn::sites::registryIsFirst);
    // The signal fires after all calls of the dead worker, so that none of them starts waiting after this.
    managerOf(worker)
        .onWorkerDied()
        .connect(_lifetime.guard([this](WorkerId id) { _registry->forgetWorker(id); }))
        .detach();
    WorkerObjectManager::makeLocal(fn::AutoPtr<ObjectReference>(worker.registry()), _registry);
    const auto relay = fn::makeAuto<MessageBusImpl>(worker);
    worker.registry()->registerObject(relay, 0);
    joinBus(*relay);
    for (; _waitingConnections > 0; --_waitingConnections) accept();
    onReady.fireOnce();
}

void Hub::joinBus(ObjectInstance& relay)
{
    if (MessageBus::isInstalled()) return;
    _bus = fn::dynamicCast<MessageBus>(relay.localReference());
    fn::MessageBus::setInstance(*_bus);
    fn::MessageBus::repostStickyMessages();
}

void Hub::leaveBus()
{
    // The loop deletes the bus later, or never. Until then posted messages are to reach this process at least.
    if (_bus) fn::MessageBus::removeInstance(*_bus);
    _bus.reset();
}

void Hub::closeOwnWorker()
{
    leaveBus();
    _worker->close();
}

} // namespace ipc
