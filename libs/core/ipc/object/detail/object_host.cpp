#include "core/ipc/object/detail/object_host.h"
#include "base/exceptions.h"
#include <typeinfo>

namespace ipc {

ObjectHost::~ObjectHost() = default;

Worker& ObjectHost::worker() const
{
    if (!_worker) fn::internal::throwNullPointer(typeid(ObjectHost));
    return *_worker;
}

} // namespace ipc
