#pragma once
#include <exception>
#include <source_location>
#include <string>

namespace fn::internal {

/// The text of an exception for logs: "CLASS: MESSAGE".
std::string exceptionText(const std::exception& exception);

/// Logs the failure of a promise that nobody has asked for its outcome; fn::Promise says which and how often. `place` is that of the
/// coroutine that made the promise, or null. Thread-safe.
void reportUnseenFailure(const std::exception_ptr& failure, const std::source_location* place) noexcept;

} // namespace fn::internal
