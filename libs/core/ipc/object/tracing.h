#pragma once
#include "base/export.h"
#include <cstdint>

namespace ipc {

/// Has each call of a typed interface carry a trace: the one of the work that calls (`fn::WorkContext`), or else a new one. The service
/// works under the same trace, and so do the calls that it makes; log lines carry it. Default: only calls of work that has a trace do.
/// Thread-safe.
FN_EXPORT void setCallTracing(bool isOn);

/// A new trace if tracing is on, else 0. Thread-safe.
std::uint64_t newTraceId();

} // namespace ipc
