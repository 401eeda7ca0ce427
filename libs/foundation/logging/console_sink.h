#pragma once
#include "foundation/logging/sink.h"

namespace fn::logging {

/// Writes each message as one line to standard error, "hh:mm:ss.mmm PRIO category: text", in one write. Thread-safe.
class FN_EXPORT ConsoleSink final : public Sink {
public:
    explicit ConsoleSink(int threshold = Info);

    int threshold(const Category& category) const override;
    void logMessage(const Category& category, const Message& message) override;

private:
    ~ConsoleSink() override;

    const int _threshold;
};

} // namespace fn::logging
