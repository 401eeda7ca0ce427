#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/dispatcher/worker_connection.h"
#include "core/ipc/message_bus_impl.h"
#include "core/ipc/registry.h"
#include "core/ipc/registry_impl.h"
#include "foundation/assertion.h"

// The dispatcher's own worker and the objects it hosts.

namespace ipc {

void Dispatcher::workerDidConnect(Worker& worker)
{
    _registry = fn::makeAuto<RegistryImpl>(worker);
    FN_ASSERT(_registry->objectId() == REGISTRY_OBJECT_ID, "libs/core/ipc/dispatcher", 100, "workerDidConnect",
        "this->_registry->objectId() == REGISTRY_OBJECT_ID");
    // Not before its calls that are still under way have been handled.
    worker._workerDied.connect([this](WorkerId id) { _registry->forgetWorker(id); }).detach();
    worker.adoptRegistry(fn::dynamicCast<Registry>(_registry->localReference()));
    worker.registry()->registerObject(fn::makeAuto<MessageBusImpl>(worker), 0);
    for (; _waitingConnections > 0; --_waitingConnections) accept();
    _onReady.fireOnce();
}

void Dispatcher::closeOwnWorker()
{
    _worker->close();
}

} // namespace ipc
