#include "core/ipc/interface/describe.h"
#include "foundation/value_map.h"

namespace ipc::internal {

void addMember(fn::Value& description, const char* kind, const char* name, fn::Value types)
{
    description.mapForPath(kind).set(name, std::move(types));
}

} // namespace ipc::internal
