#pragma once
#include "foundation/value.h"

namespace fn::json {

/// Replaces values for which JSON has no type (bytes, boxed values and objects) when they are written.
class FN_EXPORT ValueSerializer {
public:
    virtual bool handles(const Value& value) = 0; ///< Whether `value` is written by this hook.
    /// The value to write instead of one that `handles()`. It may hold further such values, but must not be one itself.
    virtual Value serialize(const Value& value) = 0;
    virtual ~ValueSerializer();
};

/// Makes the replaced values again from the maps that a ValueSerializer wrote for them.
class FN_EXPORT ValueDeserializer {
public:
    /// Called with each map that has been read, inner maps first. Returns the value to keep in the map's place.
    virtual Value deserialize(Value value) = 0;
    virtual ~ValueDeserializer();
};

} // namespace fn::json
