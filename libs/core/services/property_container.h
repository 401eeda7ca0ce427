#pragma once
#include "base/export.h"
#include "foundation/value.h"
#include <string_view>
#include <vector>

namespace core {

/// An object with named values.
class FN_EXPORT PropertyContainer {
public:
    /// The value of that name, or a reference to `defaultValue`, which must then live as long as the result is used.
    virtual const fn::Value& property(std::string_view name, const fn::Value& defaultValue) const = 0;
    virtual void setProperty(std::string_view name, fn::Value value) = 0; ///< Adds or replaces it.
    virtual void removeProperty(std::string_view name) = 0; ///< A missing property is no error.
    virtual bool hasProperty(std::string_view name) const = 0; ///< Whether there is a value of that name, nil included.
    virtual std::vector<fn::String> propertyNames() const = 0; ///< All of them.
    virtual ~PropertyContainer();

    /// Whether there is a value of that name and it is of that type.
    bool hasProperty(std::string_view name, fn::Value::Type type) const;
};

} // namespace core
