#pragma once
#include "base/stack_trace.h"
#include <span>
#include <vector>

namespace fn::internal {

/// Module, symbol and source line of return addresses of this process, from the symbol tables of its modules (hidden symbols too) and
/// the debug information where a module carries it. What is not found stays empty. Each address is looked up once; the memory that
/// takes (mapped files, tables) is given back before the call returns. Thread-safe. Throws nothing but std::bad_alloc.
std::vector<ResolvedFrame> resolveAddresses(std::span<void* const> returnAddresses);

} // namespace fn::internal
