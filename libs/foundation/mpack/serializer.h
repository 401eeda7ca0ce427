#pragma once
#include "base/exceptions.h"
#include "foundation/mpack/hooks.h"
#include <span>
#include <string_view>

namespace fn::mpack {

/// Writes values as MessagePack, integers and lengths in their shortest form; doubles in 64 bits, bytes as bin, text as str.
class FN_EXPORT Serializer {
public:
    /// `stream` and `hook` are borrowed.
    explicit Serializer(OutputStream& stream, ValueSerializer* hook = nullptr) : _stream(stream), _hook(hook) { }

    /// Bounds the number of values inside all containers together, as `Deserializer::setMaxValues()` does; an entry of a map counts
    /// as two. More values: `fn::DataFormatException`. Default: no bound.
    void setMaxValues(std::uint64_t count) noexcept { _valuesLeft = count; }

    /// Writes one value, a timestamp as extension -1. `fn::DataFormatException` "Unsupported value type" for another boxed value
    /// that no hook takes; the same class for containers deeper than `maxDepth`.
    void serialize(const Value& value);

    /// Begins a map: `count` keys follow, each with its value behind it.
    void beginMap(std::size_t count) { beginContainer(count, true, 0); }

    /// An entry of a map with text keys.
    struct Field {
        std::string_view key;
        const Value& value;
    };

    /// Writes what `serialize()` would write of a map with these entries (ascending by key), without making the map.
    void serializeMap(std::span<const Field> fields);

private:
    void write(const Value& value, int depth);
    void beginContainer(std::size_t count, bool isMap, int depth);
    void writeExtension(const Value& value);
    OutputStream& _stream;
    ValueSerializer* _hook;
    std::uint64_t _valuesLeft = UINT64_MAX;
};

} // namespace fn::mpack
