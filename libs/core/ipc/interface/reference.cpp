#include "core/ipc/interface/reference.h"

namespace ipc::internal {

void throwNoObject(const fn::String& className)
{
    throw fn::NullPointerException("A reference to an object of class " + className + " refers to nothing");
}

} // namespace ipc::internal
