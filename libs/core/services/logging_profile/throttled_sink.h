#pragma once
#include "base/auto_ptr.h"
#include "base/exceptions.h"
#include "foundation/logging/sink.h"

namespace core {

/// Stands between a profile and its sink, where the rate of messages can be bounded. At present everything passes.
/// Thread-safe.
class FN_EXPORT ThrottledSink final : public fn::logging::Sink {
public:
    /// A null sink is reported as a broken invariant; `logMessage()` then throws `fn::NullPointerException`.
    explicit ThrottledSink(fn::AutoPtr<fn::logging::Sink> sink);
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override;

private:
    ~ThrottledSink() override;

    const fn::AutoPtr<fn::logging::Sink> _sink;
};

} // namespace core
