#pragma once
#include "base/stack_trace.h"
#include <span>
#include <vector>

namespace fn::internal {

/// Finds module, symbol and source line of return addresses of this process in the symbol tables of its modules (hidden symbols, too)
/// and in their debug information, if they have any. Fields that are not found stay empty. Each address is looked up once; mapped
/// files and tables are freed before the call returns. Thread-safe. Throws nothing but std::bad_alloc.
std::vector<ResolvedFrame> resolveAddresses(std::span<void* const> returnAddresses);

} // namespace fn::internal
