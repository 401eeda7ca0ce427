#pragma once
#include "foundation/logging/message.h"
#include <string>
#include <string_view>

namespace fn::logging {

/// Writes to descriptor 2 in one call where the system takes it. What it does not take within a moment is lost: nobody
/// waits for a reader of logs.
void writeStandardError(std::string_view text) noexcept;

/// The text with "\n" or "\xNN" for each control character that is not in `kept`, so that a text from elsewhere does not
/// command a terminal.
std::string escapeControls(std::string_view text, std::string_view kept);

/// "hh:mm:ss.mmm PRIO category: text" and a line feed, local time. Control characters except tabs come out escaped,
/// so that a text from elsewhere does not forge lines either.
void writeConsoleLine(const Category& category, const Message& message);

} // namespace fn::logging
