#include "foundation/logging/sink.h"

namespace fn::logging {

Sink::~Sink() = default;

int Sink::threshold(const Category&) const { return Trace; }

} // namespace fn::logging
