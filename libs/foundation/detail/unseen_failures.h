#pragma once
#include <exception>
#include <string>

namespace fn::internal {

/// "RangeException: what it says", for logs.
std::string exceptionText(const std::exception& exception);

/// Logs the failure of a promise on which nobody has called `then()`; fn::Promise says which and how often. Thread-safe.
void reportUnseenFailure(const std::exception_ptr& failure) noexcept;

} // namespace fn::internal
