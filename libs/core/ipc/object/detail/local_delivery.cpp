#include "core/ipc/object/detail/local_delivery.h"
#include "base/exceptions.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/object_instance.h"
#include "foundation/assertion.h"
#include "foundation/mpack/hooks.h"
#include "foundation/value_map.h"

namespace ipc {
namespace {

/// Whether `value` holds an instance anywhere but in keys of maps. Throws for values that no other worker could be sent.
bool holdsInstance(const fn::Value& value, const ObjectHost& host, int depth)
{
    using Kind = fn::Value::Kind;
    const auto kind = value.kind();
    if (kind < Kind::Array) return false;
    if (kind > Kind::Map) {
        PayloadWriter::checkSendable(value, host);
        return value.isObject() && dynamic_cast<const ObjectInstance*>(value.objectPointer());
    }
    if (depth >= fn::mpack::maxDepth) throw fn::DataFormatException("Value is nested too deeply");
    bool holds = false;
    if (kind == Kind::Map) {
        for (const auto& [key, entry] : value.entries()) holds |= holdsInstance(entry, host, depth + 1);
    } else {
        for (const auto& element : value.elements()) holds |= holdsInstance(element, host, depth + 1);
    }
    return holds;
}

fn::Value replace(const fn::Value& value)
{
    if (value.isObject()) {
        auto* instance = dynamic_cast<ObjectInstance*>(value.objectPointer());
        if (!instance) return value;
        const auto reference = instance->localReference();
        FN_ASSERT(reference, fn::sites::instanceHasReference);
        return reference;
    }
    if (value.isMap()) {
        fn::Value::Map translated;
        for (const auto& [key, entry] : value.entries()) translated.set(key, replace(entry));
        return translated;
    }
    if (value.isArray()) {
        fn::Value::Array translated;
        translated.reserve(value.size());
        for (const auto& element : value.elements()) translated.push_back(replace(element));
        return translated;
    }
    return value;
}

} // namespace

fn::Value replaceInstanesWithReferences(const fn::Value& value, const ObjectHost& host)
{
    return holdsInstance(value, host, 0) ? replace(value) : value;
}

} // namespace ipc
