#pragma once
#include "foundation/export.h"
#include <exception>

namespace fn {

/// Called inside a catch block for a failure that nobody can handle: logs the current exception at priority 1 and hands
/// it to the hook. Returns in every case, also when logging or the hook throw. Thread-safe.
FN_EXPORT void unhandledException() noexcept;

using UnhandledExceptionHook = void (*)(std::exception_ptr);

/// Replaces the hook (null: none) and gives back the previous one. Thread-safe.
FN_EXPORT UnhandledExceptionHook setUnhandledExceptionHook(UnhandledExceptionHook hook) noexcept;

} // namespace fn
