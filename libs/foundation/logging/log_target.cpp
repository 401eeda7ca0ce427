#include "foundation/logging/log_target.h"

namespace fn {

LogTarget::~LogTarget() = default;

} // namespace fn
