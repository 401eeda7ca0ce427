#pragma once
#include "foundation/logging/message.h"
#include <string>
#include <string_view>

namespace fn::logging {

/// The text with "\xNN" for each control character that is not in `kept`, so that a foreign text cannot command a terminal.
std::string escapeControls(std::string_view text, std::string_view kept);

/// Writes "hh:mm:ss.mmm PRIO category: text" (local time) and a line feed to standard error. Further lines of the text are
/// indented, so that a foreign text cannot pass for another message; control characters other than tabs are escaped.
void writeConsoleLine(const Category& category, const Message& message);

} // namespace fn::logging
