#include "foundation/value_map.h"

namespace fn {

Value& Value::mapForPath(std::string_view path)
{
    Value* value = this;
    for (const auto& key : String(path).split('.', String::KeepEmptyParts)) value = &value->mutableEntries()[key];
    value->mutableEntries(); // Makes nil a map, and refuses other kinds.
    return *value;
}

const Value* Value::valueForPathIfExists(std::string_view path) const
{
    const Value* value = this;
    for (const auto& key : String(path).split('.', String::KeepEmptyParts)) {
        value = value->find(key);
        if (!value) return nullptr;
    }
    return value;
}

} // namespace fn
