#pragma once
#include "platform/firewall/detail/records.h"
#include <string>
#include <string_view>

namespace platform::detail {

/// The records as the text of a key file: groups "Profiles", "Rule N" and "Application N".
std::string recordsText(FirewallRecords records);

/// Reads that text, which is hostile: `fn::DataFormatException` for other groups, missing keys and impossible values.
FirewallRecords readRecordsText(std::string_view text);

} // namespace platform::detail
