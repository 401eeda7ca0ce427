#pragma once
#include <exception>
#include <string>

namespace fn::internal {

/// "RangeException: what it says", for logs.
std::string exceptionText(const std::exception& exception);

/// Logs the failure of a promise that nobody has looked at, as fn::Promise says. Thread-safe.
void reportUnseenFailure(const std::exception_ptr& failure) noexcept;

} // namespace fn::internal
