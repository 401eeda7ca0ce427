#pragma once
#include "foundation/logging/message.h"
#include <string>
#include <string_view>

namespace fn::logging {

/// The text with "\xNN" for each control character that is not in `kept`, so that a text from elsewhere does not command a
/// terminal.
std::string escapeControls(std::string_view text, std::string_view kept);

/// "hh:mm:ss.mmm PRIO category: text" and a line feed to standard error, local time. Further lines of the text are indented,
/// so that a text from elsewhere does not pass for a message of its own; control characters but tabs come out escaped.
void writeConsoleLine(const Category& category, const Message& message);

} // namespace fn::logging
