#pragma once
#include "base/exceptions.h"
#include "foundation/mpack/hooks.h"
#include "foundation/mpack/writer.h"
#include <span>
#include <string_view>

namespace fn::mpack {

/// Writes values as MessagePack.
class FN_EXPORT Serializer : public Writer {
public:
    /// `stream` and `hook` are borrowed.
    explicit Serializer(OutputStream& stream, ValueSerializer* hook = nullptr) : Writer(stream), _hook(hook) { }

    /// Writes one value, a timestamp as extension -1. `fn::DataFormatException` "Unsupported value type" for another boxed value
    /// that no hook takes; the same class for containers deeper than `maxDepth`.
    void serialize(const Value& value);

    /// An entry of a map with text keys.
    struct Field {
        std::string_view key; ///< Its key in the map.
        const Value& value; ///< Borrowed.
    };

    /// Writes what `serialize()` would write of a map with these entries (ascending by key), without making the map.
    void serializeMap(std::span<const Field> fields);

private:
    void writeExtension(const Value& value);

    ValueSerializer* _hook;
};

} // namespace fn::mpack
