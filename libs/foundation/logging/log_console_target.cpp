#include "foundation/logging/log_console_target.h"
#include "foundation/logging/detail/standard_error.h"

namespace fn {

LogConsoleTarget::~LogConsoleTarget() = default;

void LogConsoleTarget::write(const String& text) { logging::writeStandardError(text.view()); }

} // namespace fn
