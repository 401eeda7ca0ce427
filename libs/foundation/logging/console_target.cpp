#include "foundation/logging/console_target.h"
#include "foundation/logging/detail/standard_error.h"

namespace fn::logging {

ConsoleTarget::ConsoleTarget(int threshold) : _threshold(threshold) { }

ConsoleTarget::~ConsoleTarget() = default;

int ConsoleTarget::threshold(const Category&) const { return _threshold; }

void ConsoleTarget::logMessage(const Category& category, const Message& message)
{
    writeConsoleLine(category, message);
}

} // namespace fn::logging
