#pragma once
#include <string_view>

namespace fn::logging {

/// How long a thread without a loop waits for a full standard error; not again until somebody reads it.
inline constexpr int standardErrorPatienceMilliseconds = 100;

/// Writes an entry to descriptor 2, in one call where the system takes it whole. Nobody waits for a reader of logs: while
/// standard error takes nothing, entries are lost (the loop's thread waits for nothing, others once for a moment). They are
/// counted, and the next entry that passes comes behind a line that tells how many. A write to a file on disk takes as long as
/// the disk does. Thread-safe.
void writeStandardError(std::string_view text) noexcept;

} // namespace fn::logging
