#pragma once
#include "base/exceptions.h"

namespace ipc {

/// The failure of every call on an object whose worker has gone.
FN_DECLARE_EXCEPTION(ObjectDeadException, fn::EndedException);

} // namespace ipc
