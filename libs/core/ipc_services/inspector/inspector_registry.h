#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc_services/inspector/inspector.h"
#include "core/ipc_services/inspector/inspector_reference.h"
#include <map>

namespace core {

/// A reference to the inspector service: publishes inspectors under names, lists them, finds them by key. The object registry
/// gives it, and waits up to the given time for the service:
///
///     worker.registry()->getInstance<core::InspectorRegistry>(fn::Duration::seconds(20));
///
/// Belongs to its worker's loop, which must run for the answers to come. Each call fails with `ipc::ObjectDeadException` when
/// the service has gone; cancelling the promise cancels the call.
class FN_EXPORT InspectorRegistry final : public ipc::CallableObjectReference {
public:
    /// Made by the worker that finds the service.
    explicit InspectorRegistry(ipc::ObjectReferenceInitializer& initializer);

    /// Publishes an inspector from this worker and keeps it alive, until it is unregistered or this worker dies. Gives the
    /// registration's id; several inspectors may have the same name.
    /// Fails when too many are registered, or the name is too long (core/ipc_services/inspector/limits.h).
    fn::Promise<unsigned int> registerInspector(const fn::String& name, const fn::AutoPtr<Inspector>& inspector);

    /// Ends a registration; an unknown id is no error.
    fn::Promise<void> unregisterInspector(unsigned int id);

    fn::Promise<std::map<fn::String, fn::String>> allInspectors(); ///< Names by key.

    /// Empty when the key is unknown. The first inspector of a name has the same key each time it is registered.
    fn::Promise<fn::AutoPtr<InspectorReference>> getInspector(const fn::String& key);

    ~InspectorRegistry() override;
};

} // namespace core
