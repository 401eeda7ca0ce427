#pragma once
#include "platform/firewall/detail/records.h"
#include <functional>

namespace platform::detail {

/// The content of `firewallFile()`; the defaults if there is no such file. `fn::IOException` with ErrnoInfo if the file cannot be
/// read or is not the user's own, `fn::DataFormatException` if it is damaged. Thread-safe.
FirewallRecords readRecords();

/// Changes the file, in turn with other threads and processes, for which it may wait. Either the new file is on the disk as a whole,
/// or the old file is left. The same exceptions, and those of `change`. Thread-safe.
void updateRecords(const std::function<void(FirewallRecords&)>& change);

} // namespace platform::detail
