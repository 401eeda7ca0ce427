#include "core/inspector/register_inspector_registry.h"
#include "core/inspector/inspector_reference.h"
#include "core/inspector/inspector_registry_impl.h"
#include "core/ipc/registry.h"

namespace core {

void registerInspectorRegistry(ipc::Worker& worker)
{
    const auto service = fn::makeAuto<InspectorRegistryImpl>(worker);
    worker.registerObjectReferenceClass<InspectorReference>();
    worker.registry()->registerObject(service, 0);
}

} // namespace core
