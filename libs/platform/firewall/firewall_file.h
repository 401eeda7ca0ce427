#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "platform/scoped_override.h"

namespace platform {

/// Where the firewall interfaces keep what they are told: `core/firewall.rules` in the user's data folder
/// (`$XDG_DATA_HOME`, or `.local/share` of his home). It need not exist: then the firewall is on, without any rule.
///
/// A text file that only its user can read, replaced as a whole. One that is damaged or not the user's own, or in a folder
/// that others may write to, makes the calls fail and is never replaced; so does one above 4 MiB, and another process that is
/// changing it for more than two seconds. Nothing reads it but these interfaces: no packet
/// filter is changed. `fn::IOException` if the user has no home. Thread-safe.
FN_EXPORT fn::String firewallFile();

/// For tests: another path for it.
using ScopedFirewallFile = ScopedOverride<firewallFile, fn::String>;
extern template class FN_EXPORT ScopedOverride<firewallFile, fn::String>;

} // namespace platform
