#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/inspector.h"
#include <folly/Function.h>

namespace core {

/// Publishes an inspector as soon as the service is there, for as long as the worker lives, which is connected. Where it
/// cannot be published a log line says why: an application does without. On the worker's loop, which must be running.
FN_EXPORT void publishInspector(ipc::Worker& worker, const fn::String& name, const fn::AutoPtr<Inspector>& inspector);

/// Writes the page behind an action, nil for the first one. What it throws reaches the browser as the call's failure.
using WritePage = folly::Function<void(const fn::Value& action, InspectionResultWriter& page)>;

/// The same for one that answers at once and does not ask where its browser comes from.
FN_EXPORT void publishInspector(ipc::Worker& worker, const fn::String& name, WritePage writePage);

} // namespace core
