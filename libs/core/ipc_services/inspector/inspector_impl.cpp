#include "core/ipc_services/inspector/inspector_impl.h"
#include "core/ipc_services/inspector/inspector_reference.h"

namespace core {

InspectorImpl::InspectorImpl(ipc::Worker& worker, const fn::AutoPtr<Inspector>& inspector)
    : CallableObjectInstance(worker),
      _inspector(inspector)
{
    // While another publication lives, its callers may wait for answers, which must leave by that one.
    if (!inspector->_published.lock()) inspector->_published = fn::WeakPtr(this);
}

InspectorImpl::~InspectorImpl() = default;

fn::AutoPtr<ipc::ObjectReference> InspectorImpl::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<InspectorReference>(initializer);
}

void InspectorImpl::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name != "inspect") return;
    _inspector->_published = fn::WeakPtr(this); // The answer leaves by the publication that the call came to.
    _inspector->inspect(argument.get("action"), argument.get("refererAction"), context);
}

} // namespace core
