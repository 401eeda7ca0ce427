#pragma once
#include "base/auto_ptr.h"
#include <vector>

namespace fn {

/// A list that holds a strong reference to each of its objects.
template <typename T> using ObjectVector = std::vector<AutoPtr<T>>;

} // namespace fn
