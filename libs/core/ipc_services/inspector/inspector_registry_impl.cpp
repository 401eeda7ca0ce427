#include "core/ipc_services/inspector/inspector_registry_impl.h"
#include "base/exceptions.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "core/ipc_services/inspector/limits.h"
#include "foundation/system/uuid.h"
#include "foundation/value_map.h"
#include <limits>

namespace core {

InspectorRegistryImpl::InspectorRegistryImpl(ipc::Worker& worker) : CallableObjectInstance(worker) { }
InspectorRegistryImpl::~InspectorRegistryImpl() = default;

fn::AutoPtr<ipc::ObjectReference> InspectorRegistryImpl::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<InspectorRegistry>(initializer);
}

void InspectorRegistryImpl::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name == "registerInspector") {
        sendResult(context, registerInspector(context, argument));
    } else if (name == "unregisterInspector") {
        removeRegistration(argument.to<std::uint32_t>());
        sendResult(context);
    } else if (name == "allInspectors") {
        sendResult(context, allInspectors());
    } else if (name == "getInspector") {
        sendResult(context, getInspector(argument.asString()));
    }
}

fn::Value InspectorRegistryImpl::registerInspector(const CallContext& context, const fn::Value& argument)
{
    const auto name = argument.get("name").asString();
    const auto reference = argument.get("reference").object<InspectorReference>();
    if (!reference) throw fn::RuntimeException("Only an inspector can be registered");
    // A registration ends with the worker of its inspector. A process that registered inspectors of other workers could connect
    // again and again, and leave more registrations each time.
    if (ipc::ownerOf(reference->objectId()) != context.workerId)
        throw fn::RuntimeException("Only the worker of an inspector can register it");
    checkRoom(context.workerId, name);

    const auto id = ++_lastId;
    const auto key = newKey(name);
    ++_counts[context.workerId];
    _keys.emplace(key, id);
    _registrations.emplace(id, Registration { name, key, reference, {} });
    // If the reference is dead already, the signal fires at once, and the registration has gone.
    auto death = reference->objectDeadSignal().connect([this, id] { removeRegistration(id); });
    const auto registration = _registrations.find(id);
    if (registration != _registrations.end()) registration->second.death = std::move(death);
    return id;
}

void InspectorRegistryImpl::checkRoom(ipc::WorkerId workerId, const fn::String& name) const
{
    if (name.size() > limits::inspectorNameBytes) throw fn::RuntimeException("The name of the inspector is too long");
    const auto count = _counts.find(workerId);
    if (count != _counts.end() && count->second >= limits::inspectorsOfWorker)
        throw fn::RuntimeException("Too many inspectors of one worker are registered");
    if (_registrations.size() >= limits::inspectors || _lastId == std::numeric_limits<std::uint32_t>::max())
        throw fn::RuntimeException("Too many inspectors are registered");
}

/// The key of the first inspector of a name is always the same; each further one of that name gets a new key.
fn::String InspectorRegistryImpl::newKey(const fn::String& name) const
{
    auto key = fn::ByteArray(name.view()).SHA256().base64(0);
    return _keys.contains(key) ? fn::UUIDGenerator::defaultGenerator().createOne().toString() : key;
}

void InspectorRegistryImpl::removeRegistration(std::uint32_t id)
{
    const auto removed = _registrations.extract(id);
    if (!removed) return;
    _keys.erase(removed.mapped().key);
    const auto count = _counts.find(ipc::ownerOf(removed.mapped().reference->objectId()));
    if (--count->second == 0) _counts.erase(count);
}

fn::Value InspectorRegistryImpl::allInspectors() const
{
    fn::Value names(fn::Value::MAP);
    for (const auto& [key, id] : _keys)
        names.set(key, _registrations.at(id).name); // The keys ascend, so that the map appends them.
    return names;
}

fn::Value InspectorRegistryImpl::getInspector(const fn::String& key) const
{
    const auto found = _keys.find(key);
    return found == _keys.end() ? fn::Value() : fn::Value(_registrations.at(found->second).reference);
}

} // namespace core
