#pragma once
#include "foundation/string.h"
#include <typeinfo>

namespace fn::debug {

/// The readable form of `std::type_info::name()`, e.g. "ipc::MessageBus". These names travel between processes, so they
/// depend on the type alone. Unreadable input comes back as it is.
FN_EXPORT String demangleTypeName(const char* mangled);

} // namespace fn::debug
