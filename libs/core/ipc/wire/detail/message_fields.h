#pragma once
#include "foundation/mpack/serializer.h"
#include "foundation/value_map.h"

namespace ipc {

/// A payload that is a map with text keys, which ascend. It is encoded for other workers without building the map.
class MessageFields : public std::span<const fn::mpack::Serializer::Field> {
public:
    using span::span;

    /// Builds the map, for a receiver in the sender's own worker.
    fn::Value toMap() const
    {
        fn::Value::Map entries;
        entries.reserve(size());
        for (const auto& [key, value] : *this) entries.set(key, value);
        return entries;
    }
};

} // namespace ipc
