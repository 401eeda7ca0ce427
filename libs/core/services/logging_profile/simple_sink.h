#pragma once
#include "base/auto_ptr.h"
#include "base/exceptions.h"
#include "foundation/logging/log_target.h"
#include "foundation/logging/sink.h"

namespace core {

/// Writes the texts of messages alone, with line ends of CR and LF. Thread-safe.
class FN_EXPORT SimpleSink final : public fn::logging::Sink {
public:
    /// A null target is reported as a broken invariant; `logMessage()` then throws `fn::NullPointerException`.
    explicit SimpleSink(fn::AutoPtr<fn::LogTarget> target);
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override;

private:
    ~SimpleSink() override;

    const fn::AutoPtr<fn::LogTarget> _target;
};

} // namespace core
