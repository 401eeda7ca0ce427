#pragma once
#include <string_view>

namespace fn::logging {

/// How long a thread without a loop waits while standard error is full. After that it waits no more until an entry has passed.
inline constexpr int standardErrorPatienceMilliseconds = 100;

/// Writes an entry to descriptor 2, in one call where the system takes it whole. While standard error takes nothing, entries are
/// lost: a thread that runs a loop does not wait, other threads wait once for the time above. Lost entries are counted, and a line
/// before the next entry that passes tells how many. A write to a file on disk takes as long as the disk does. Thread-safe.
void writeStandardError(std::string_view text) noexcept;

} // namespace fn::logging
