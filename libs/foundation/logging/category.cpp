#include "foundation/logging/category.h"
#include "foundation/logging/detail/category_private.h"

namespace fn::logging {

Category::Category(String name, const Category* parent)
    : _name(std::move(name)),
      _parent(parent),
      _private(std::make_unique<Private>())
{
}

Category::~Category() = default;

} // namespace fn::logging
