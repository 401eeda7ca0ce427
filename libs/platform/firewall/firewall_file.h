#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "platform/scoped_override.h"

namespace platform {

/// The file in which the firewall interfaces keep rules and programs: `core/firewall.rules` in the user's data folder
/// (`$XDG_DATA_HOME`, or `.local/share` of the user's home). Without this file the firewall is on, without any rule.
///
/// It is a text file that only the user can read, and is replaced as a whole. A file that is damaged, not the user's own, above
/// 4 MiB, or in a folder that others may write to, makes the calls fail and is never replaced. Calls fail also if another process is
/// changing the file for more than two seconds. Only these interfaces read it: no packet filter is changed.
/// `fn::IOException` if the user has no home. Thread-safe.
FN_EXPORT fn::String firewallFile();

/// For tests: another path of the file.
using ScopedFirewallFile = ScopedOverride<firewallFile, fn::String>;
extern template class FN_EXPORT ScopedOverride<firewallFile, fn::String>;

} // namespace platform
