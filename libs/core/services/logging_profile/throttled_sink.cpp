#include "core/services/logging_profile/throttled_sink.h"
#include "foundation/assertion.h"

namespace core {

ThrottledSink::ThrottledSink(fn::AutoPtr<fn::logging::Sink> sink) : _sink(std::move(sink))
{
    (void)FN_ASSERT(_sink, fn::sites::throttledSinkHasSink);
}

ThrottledSink::~ThrottledSink() = default;

void ThrottledSink::logMessage(const fn::logging::Category& category, const fn::logging::Message& message)
{
    _sink->logMessage(category, message);
}

} // namespace core
