#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/inspector.h"
#include <folly/Function.h>

namespace core {

/// Publishes an inspector as soon as the service is there, for as long as the worker lives. The worker must be connected, and
/// its loop running. A log line says why an inspector cannot be published; an application does without it.
FN_EXPORT void publishInspector(ipc::Worker& worker, const fn::String& name, const fn::AutoPtr<Inspector>& inspector);

/// Writes the page of an action, nil for the first one. An exception reaches the browser as the call's failure.
using WritePage = folly::Function<void(const fn::Value& action, InspectionResultWriter& page)>;

/// Publishes an inspector that answers at once and does not use `refererAction`.
FN_EXPORT void publishInspector(ipc::Worker& worker, const fn::String& name, WritePage writePage);

} // namespace core
