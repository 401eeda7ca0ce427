#pragma once
#include "core/ipc/worker/worker.h"

namespace core {

/// Makes the inspector service in `worker` and offers it to all other workers; to be called once in the system, usually for the
/// hub's own worker at `Dispatcher::onReady()`. The worker must be connected, and its loop running. A failure goes to
/// `fn::unhandledException()`.
FN_EXPORT void registerInspectorRegistry(ipc::Worker& worker);

} // namespace core
