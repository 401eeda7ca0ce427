#pragma once
#include "base/exceptions.h"
#include "foundation/mpack/hooks.h"
#include <optional>

namespace fn::mpack {

/// Reads MessagePack from untrusted bytes. Depth is bounded by `maxDepth`; nothing is allocated beyond what the bytes
/// left in the stream can fill.
class FN_EXPORT Deserializer {
public:
    /// `stream` and `hook` are borrowed. Without a hook an extension value other than a timestamp reads as nil.
    explicit Deserializer(InputStream& stream, ValueDeserializer* hook = nullptr) : _stream(stream), _hook(hook) { }

    /// Bounds the number of values inside all containers together: a value may take one byte on the wire and takes 24 in memory.
    /// More values: `fn::DataFormatException`. Default: no bound but the bytes.
    void setMaxValues(std::uint64_t count) noexcept { _valuesLeft = count; }

    /// The next value; empty at the end of the stream. Malformed bytes: `fn::DataFormatException`; a stream that ends
    /// within a value: `fn::EndOfStreamException`. Both name the offset.
    std::optional<Value> deserialize();

private:
    // `depth` counts the containers around the value; `code` is the first byte of the value.
    Value read(int depth);
    Value read(std::uint8_t code, int depth);
    Value readText(std::uint32_t size);
    Value readBytes(std::uint32_t size);
    Value readArray(std::uint32_t count, int depth);
    Value readMap(std::uint32_t count, int depth);
    Value readExtension(std::uint32_t size);
    void enterContainer(std::uint64_t values, int depth);
    void requireBytes(std::uint64_t size) const; // EndOfStreamException if the stream knows that it has fewer bytes.

    InputStream& _stream;
    ValueDeserializer* _hook;
    std::uint64_t _valuesLeft = UINT64_MAX;
};

} // namespace fn::mpack
