#include "foundation/logging/log_console_target.h"
#include "foundation/logging/detail/console_line.h"
#include "foundation/logging/detail/standard_error.h"

namespace fn {

LogConsoleTarget::~LogConsoleTarget() = default;

void LogConsoleTarget::write(const String& text)
{
    try {
        logging::writeStandardError(logging::escapeControls(text.view(), "\t\r\n"));
    } catch (const std::exception&) {
        // No memory for the copy: one entry is lost.
    }
}

} // namespace fn
