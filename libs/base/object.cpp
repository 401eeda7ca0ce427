#include "base/object.h"
#include "base/debug.h"
#include "base/string.h"

namespace fn {

Object::~Object() = default;

String Object::toString() const
{
    return fmt::format(
        "{} (0x{:x})", debug::demangleTypeName(typeid(*this).name()), reinterpret_cast<std::uintptr_t>(this));
}

} // namespace fn
