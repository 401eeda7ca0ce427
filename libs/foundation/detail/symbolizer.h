#pragma once
#include "foundation/stack_trace.h"

namespace fn::internal {

/// Who lies at a return address of this process: from the symbol tables of its modules, hidden symbols included, and the
/// debug information where a module carries it. What is not found stays empty. Cached; thread-safe.
/// Throws nothing but std::bad_alloc.
ResolvedFrame resolveAddress(void* returnAddress);

} // namespace fn::internal
