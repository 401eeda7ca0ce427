#include "core/ipc/object/local_delivery_private.h"
#include "core/ipc/object/object_instance.h"
#include "foundation/assertion.h"
#include "foundation/exceptions.h"
#include "foundation/mpack/hooks.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace ipc {
namespace {

/// The same bound as for payloads that travel.
void checkDepth(int depth)
{
    if (depth > fn::mpack::maxDepth) throw fn::DataFormatException("Value is nested too deeply");
}

bool holdsInstance(const fn::Value& value, int depth)
{
    checkDepth(depth);
    if (value.isObject()) return dynamic_cast<const ObjectInstance*>(value.objectPointer()) != nullptr;
    if (value.isMap()) {
        return std::ranges::any_of(
            value.entries(), [&](const auto& entry) { return holdsInstance(entry.value, depth + 1); });
    }
    if (value.isArray()) {
        return std::ranges::any_of(
            value.elements(), [&](const auto& element) { return holdsInstance(element, depth + 1); });
    }
    return false;
}

fn::Value replace(const fn::Value& value, int depth)
{
    checkDepth(depth);
    if (value.isObject()) {
        auto* instance = dynamic_cast<ObjectInstance*>(value.objectPointer());
        if (!instance) return value;
        const auto reference = instance->localReference();
        FN_ASSERT(reference, "libs/core/ipc/object", 15, "replaceInstanesWithReferences", "o->localReference()");
        return reference;
    }
    if (value.isMap()) {
        fn::Value::Map translated;
        for (const auto& [key, entry] : value.entries()) translated.set(key, replace(entry, depth + 1));
        return translated;
    }
    if (value.isArray()) {
        fn::Value::Array translated;
        translated.reserve(value.size());
        for (const auto& element : value.elements()) translated.push_back(replace(element, depth + 1));
        return translated;
    }
    return value;
}

} // namespace

fn::Value replaceInstanesWithReferences(const fn::Value& value)
{
    return holdsInstance(value, 0) ? replace(value, 0) : value;
}

} // namespace ipc
