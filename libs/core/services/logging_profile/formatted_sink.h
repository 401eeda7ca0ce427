#pragma once
#include "base/auto_ptr.h"
#include "base/exceptions.h"
#include "foundation/logging/log_target.h"
#include "foundation/logging/sink.h"
#include "foundation/time/date_time.h"
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace core {

/// Writes messages for people who look for causes: local time, priority, thread, source, then the text, wrapped (after
/// `lineCharacters` at most) and indented, with line ends of CR and LF:
///
///     12:34:56 INF 0a dispatcher:212  - - - - - - - - Module 3 has connected
///
/// A line with the date stands before the first message of each day. Control characters of a text are written as they are, but
/// its lines after the first are indented, so that none of them looks like a message. Thread-safe.
class FN_EXPORT FormattedSink final : public fn::logging::Sink {
public:
    static constexpr std::size_t lineCharacters = 140; ///< After so many characters a text is wrapped.

    /// A null target is reported as a broken invariant; `logMessage()` then throws `fn::NullPointerException`.
    explicit FormattedSink(fn::AutoPtr<fn::LogTarget> target);
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override;

private:
    ~FormattedSink() override;
    void announceDay(const fn::DateTime& local);

    const fn::AutoPtr<fn::LogTarget> _target;
    std::atomic<std::int32_t> _lastDay { 0 }; // The local date of the last message, in one number.
};

} // namespace core
