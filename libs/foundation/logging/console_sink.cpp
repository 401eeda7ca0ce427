#include "foundation/logging/console_sink.h"
#include "foundation/logging/detail/console_line.h"

namespace fn::logging {

ConsoleSink::ConsoleSink(int threshold) : _threshold(threshold) { }

ConsoleSink::~ConsoleSink() = default;

int ConsoleSink::threshold(const Category&) const { return _threshold; }

void ConsoleSink::logMessage(const Category& category, const Message& message) { writeConsoleLine(category, message); }

} // namespace fn::logging
