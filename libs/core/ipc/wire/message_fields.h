#pragma once
#include "foundation/mpack/serializer.h"
#include "foundation/value_map.h"

namespace ipc {

/// A payload that is a map with text keys, which ascend. It is encoded for other workers without building the map.
using MessageFields = std::span<const fn::mpack::Serializer::Field>;

/// Builds the map, for a receiver in the sender's own worker.
inline fn::Value toMap(MessageFields fields)
{
    fn::Value::Map entries;
    entries.reserve(fields.size());
    for (const auto& [key, value] : fields) entries.set(key, value);
    return entries;
}

} // namespace ipc
