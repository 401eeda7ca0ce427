#pragma once
#include "foundation/logging/message.h"
#include <string_view>

namespace fn::logging {

/// Writes to descriptor 2 in one call where the system takes it. What it does not take within a moment is lost: nobody
/// waits for a reader of logs.
void writeStandardError(std::string_view text) noexcept;

/// "hh:mm:ss.mmm PRIO category: text" and a line feed, local time. Control characters come out escaped, so that a text
/// from elsewhere neither forges lines nor commands a terminal.
void writeConsoleLine(const Category& category, const Message& message);

} // namespace fn::logging
