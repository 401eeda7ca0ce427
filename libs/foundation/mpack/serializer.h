#pragma once
#include "foundation/mpack/hooks.h"

namespace fn::mpack {

/// Writes values as MessagePack, integers and lengths in their shortest form; doubles in 64 bits, bytes as bin, text as str.
class FN_EXPORT Serializer {
public:
    /// `stream` and `hook` are borrowed.
    explicit Serializer(OutputStream& stream, ValueSerializer* hook = nullptr) : _stream(stream), _hook(hook) { }

    /// One value. A boxed value that no hook takes (a timestamp is ext -1): `fn::DataFormatException` "Unsupported value
    /// type"; the same class for containers deeper than `maxDepth`.
    void serialize(const Value& value);

private:
    void write(const Value& value, int depth);
    void writeExtension(const Value& value);
    OutputStream& _stream;
    ValueSerializer* _hook;
};

} // namespace fn::mpack
