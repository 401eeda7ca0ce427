#include "core/ipc/object/object_dead_exception.h"
#include "base/exception_factory.h"

namespace ipc {

FN_IMPLEMENT_EXCEPTION(ObjectDeadException, fn::EndedException);

} // namespace ipc
