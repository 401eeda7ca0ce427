#pragma once
#include "driver/roles.h"

namespace bench::ours {

/// The roles that call and hear by interfaces as C++ types; with `awaits` 1 callers are coroutines.
Roles typedRoles();

} // namespace bench::ours
