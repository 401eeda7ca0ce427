#pragma once
#include "core/services/property_container.h"
#include <map>

namespace core {

/// Properties in a map that the derived class owns. References that `property()` gives are valid until that property
/// changes.
class FN_EXPORT SimplePropertyContainer : public PropertyContainer {
public:
    using PropertyContainer::hasProperty; ///< Both of them.

    const fn::Value& property(std::string_view name, const fn::Value& defaultValue) const override;
    void setProperty(std::string_view name, fn::Value value) override;
    void removeProperty(std::string_view name) override;
    bool hasProperty(std::string_view name) const override;
    std::vector<fn::String> propertyNames() const override; ///< Ascending.
    ~SimplePropertyContainer() override;

    virtual const std::map<fn::String, fn::Value>& propertyMap() const = 0; ///< The properties, to be read.
    virtual std::map<fn::String, fn::Value>& propertyMap() = 0; ///< Called before a property changes.
};

} // namespace core
