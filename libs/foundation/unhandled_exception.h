#pragma once
#include "base/export.h"
#include <exception>

namespace fn {

/// Called inside a catch block for a failure that nobody can handle: logs the current exception at priority 1 and hands
/// it to the hook. Returns in every case, also when logging or the hook throw. Thread-safe.
FN_EXPORT void unhandledException() noexcept;

/// Logs an exception that was caught and dealt with, for those who look for causes later: at priority 1 in the category
/// "core.exception"; its stack trace, where it carries one, at priority 5. Thread-safe.
FN_EXPORT void logException(const std::exception& exception) noexcept;
FN_EXPORT void logException() noexcept; ///< The current exception, of whatever type, inside a catch block.

using UnhandledExceptionHook = void (*)(std::exception_ptr);

/// Replaces the hook (null: none) and gives back the previous one. Thread-safe.
FN_EXPORT UnhandledExceptionHook setUnhandledExceptionHook(UnhandledExceptionHook hook) noexcept;

} // namespace fn
