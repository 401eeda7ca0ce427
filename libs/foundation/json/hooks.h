#pragma once
#include "foundation/value.h"

namespace fn::json {

/// Writes values that JSON has no type for: bytes, boxed values and objects.
class FN_EXPORT ValueSerializer {
public:
    virtual bool handles(const Value& value) = 0;
    /// What stands for a value that `handles()`; it may hold further such values, but is none itself.
    virtual Value serialize(const Value& value) = 0;
    virtual ~ValueSerializer();
};

/// Makes such values of what stands for them.
class FN_EXPORT ValueDeserializer {
public:
    /// Given each map that has been read, the inner ones first; gives what to keep in its place.
    virtual Value deserialize(Value value) = 0;
    virtual ~ValueDeserializer();
};

} // namespace fn::json
