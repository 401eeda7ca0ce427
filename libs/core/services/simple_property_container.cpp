#include "core/services/simple_property_container.h"
#include <utility>

namespace core {

SimplePropertyContainer::~SimplePropertyContainer() = default;

const fn::Value& SimplePropertyContainer::property(std::string_view name, const fn::Value& defaultValue) const
{
    const auto& properties = propertyMap();
    const auto found = properties.find(name);
    return found != properties.end() ? found->second : defaultValue;
}

void SimplePropertyContainer::setProperty(std::string_view name, fn::Value value)
{
    propertyMap().insert_or_assign(fn::String(name), std::move(value));
}

void SimplePropertyContainer::removeProperty(std::string_view name) { propertyMap().erase(name); }

bool SimplePropertyContainer::hasProperty(std::string_view name) const { return propertyMap().contains(name); }

std::vector<fn::String> SimplePropertyContainer::propertyNames() const
{
    const auto& properties = propertyMap();
    std::vector<fn::String> names;
    names.reserve(properties.size());
    for (const auto& [name, value] : properties) names.push_back(name);
    return names;
}

} // namespace core
