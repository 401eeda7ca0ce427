#pragma once
#include "core/ipc/worker/worker.h"

namespace core {

/// Creates the inspector service in a worker that is connected, and offers it to all others. Once in the system; the usual
/// place is the hub's own worker, from `Dispatcher::onReady()` on. On the worker's loop, which must be running. A failure goes to
/// `fn::unhandledException()`.
FN_EXPORT void registerInspectorRegistry(ipc::Worker& worker);

} // namespace core
