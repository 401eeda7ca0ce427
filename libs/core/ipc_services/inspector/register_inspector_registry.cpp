#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "core/ipc/registry.h"
#include "core/ipc_services/inspector/inspector_reference.h"
#include "core/ipc_services/inspector/inspector_registry_impl.h"
#include "foundation/unhandled_exception.h"

namespace core {

void registerInspectorRegistry(ipc::Worker& worker)
{
    const auto service = fn::makeAuto<InspectorRegistryImpl>(worker);
    worker.registerObjectReferenceClass<InspectorReference>();
    worker.registry()
        ->registerObject(service, 0)
        .then([] {},
            [](const std::exception_ptr& failure) {
                try {
                    std::rethrow_exception(failure);
                } catch (const ipc::ObjectDeadException&) { // The worker ends.
                } catch (...) {
                    fn::unhandledException(); // Nobody will find the service.
                }
            });
}

} // namespace core
