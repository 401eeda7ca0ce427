#pragma once
#include "base/export.h"

namespace fn {

class String;

/// Root of the polymorphic classes: a Value can hold an Object, and an Object can describe itself.
class FN_EXPORT Object {
public:
    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;
    virtual ~Object();

    /// A text for people and logs. Default: the class name and the address.
    virtual String toString() const;
};

} // namespace fn
