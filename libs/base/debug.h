#pragma once
#include "base/string.h"
#include <typeinfo>

namespace fn::debug {

/// The readable form of `std::type_info::name()`, e.g. "ipc::MessageBus". These names travel between processes, so they
/// depend on the type alone. Unreadable input comes back as it is.
FN_EXPORT String demangleTypeName(const char* mangled);

/// "scanner[1234]": which process this is, by `program_invocation_short_name` (the module, in a process of its own) and id.
FN_EXPORT String processName();

} // namespace fn::debug
