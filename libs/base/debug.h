#pragma once
#include "base/string.h"
#include <typeinfo>

namespace fn::debug {

/// The readable form of `std::type_info::name()`, e.g. "ipc::MessageBus". These names travel between processes, so they depend
/// on the type alone. A name that cannot be demangled comes back as it is.
FN_EXPORT String demangleTypeName(const char* mangled);

/// The name and the id of this process, as "scanner[1234]". A module process has the name of its module.
FN_EXPORT String processName();

} // namespace fn::debug
