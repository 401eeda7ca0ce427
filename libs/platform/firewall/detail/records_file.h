#pragma once
#include "platform/firewall/detail/records.h"
#include <functional>

namespace platform::detail {

/// What `firewallFile()` says; the defaults if there is no such file. `fn::IOException` with ErrnoInfo if it can not be read
/// or is not the user's own, `fn::DataFormatException` if it is damaged. Thread-safe.
FirewallRecords readRecords();

/// Changes the file: of several threads and processes one after the other. The new one is on the disk as a whole, or the old
/// one is left. The same exceptions, and what `change` throws. May wait for others. Thread-safe.
void updateRecords(const std::function<void(FirewallRecords&)>& change);

} // namespace platform::detail
