#pragma once
#include <exception>
#include <string>

namespace fn::internal {

/// The text of an exception for logs: "CLASS: MESSAGE".
std::string exceptionText(const std::exception& exception);

/// Logs the failure of a promise on which nobody has called `then()`; fn::Promise says which and how often. Thread-safe.
void reportUnseenFailure(const std::exception_ptr& failure) noexcept;

} // namespace fn::internal
