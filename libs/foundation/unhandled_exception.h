#pragma once
#include "base/export.h"
#include <exception>

namespace fn {

/// To be called inside a catch block for a failure that nobody can handle: logs the current exception at priority 1 and hands it
/// to the hook. Returns in every case, also when logging or the hook throws. Thread-safe.
FN_EXPORT void unhandledException() noexcept;

/// Logs an exception that was caught and dealt with, for a reader of the log who looks for causes: at priority 1 in the category
/// "core.exception"; the stack trace, if the exception carries one, at priority 5. Thread-safe.
FN_EXPORT void logException(const std::exception& exception) noexcept;
FN_EXPORT void logException() noexcept; ///< Logs the exception of any type that the calling catch block handles.

/// Hears of each exception that nobody handles, on the thread that has it.
using UnhandledExceptionHook = void (*)(std::exception_ptr);

/// Replaces the hook (null: none) and returns the previous one. Thread-safe.
FN_EXPORT UnhandledExceptionHook setUnhandledExceptionHook(UnhandledExceptionHook hook) noexcept;

} // namespace fn
