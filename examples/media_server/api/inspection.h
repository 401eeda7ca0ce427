#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"

namespace media {

/// The inspector service, as soon as the main process offers it.
FN_EXPORT fn::Promise<fn::AutoPtr<core::InspectorRegistry>> findInspectors(ipc::Worker& worker);

/// Publishes an inspector for as long as the worker lives. A failure is logged: the program does without it.
FN_EXPORT void publish(ipc::Worker& worker, const fn::String& name, const fn::AutoPtr<core::Inspector>& inspector);

/// What an inspector shows for an action.
struct InspectedPage {
    fn::Value action; ///< Of what is shown in the end.
    core::InspectionResult result; ///< No redirection.
};

/// Follows redirections; too many of them are a failure.
FN_EXPORT fn::Promise<InspectedPage> inspect(
    const fn::AutoPtr<core::InspectorReference>& inspector, const fn::Value& action, const fn::Value& referer);

} // namespace media
