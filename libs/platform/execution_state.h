#pragma once
#include "base/export.h"
#include "platform/windows_types.h"

namespace platform {

using EXECUTION_STATE = DWORD;

inline constexpr EXECUTION_STATE ES_SYSTEM_REQUIRED = 0x00000001; ///< The system does not go to sleep.
inline constexpr EXECUTION_STATE ES_AWAYMODE_REQUIRED = 0x00000040;
inline constexpr EXECUTION_STATE ES_CONTINUOUS = 0x80000000; ///< The state holds until the next call.

/// Sets what this process requires of the system, and returns the state before, which is `ES_CONTINUOUS` at first. 0 tells failure,
/// after which the state is as before.
///
/// Supported are `ES_CONTINUOUS | ES_SYSTEM_REQUIRED`, for which this call asks the login manager over the system's D-Bus and waits
/// for at most two seconds, and `ES_CONTINUOUS`, which ends that state. Away mode and the display are not supported. No bus or
/// no login manager: 0. The state ends with the process; programs that the process starts do not inherit the state. Thread-safe.
FN_EXPORT EXECUTION_STATE SetThreadExecutionState(EXECUTION_STATE flags);

} // namespace platform
