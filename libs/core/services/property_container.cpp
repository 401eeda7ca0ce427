#include "core/services/property_container.h"

namespace core {

PropertyContainer::~PropertyContainer() = default;

bool PropertyContainer::hasProperty(std::string_view name, fn::Value::Type type) const
{
    return hasProperty(name) && property(name, fn::Value::NIL).is(type);
}

} // namespace core
