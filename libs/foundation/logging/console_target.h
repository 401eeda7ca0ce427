#pragma once
#include "foundation/logging/sink.h"

namespace fn::logging {

/// One line a message on standard error, "hh:mm:ss.mmm PRIO category: text", in one write. Thread-safe.
class FN_EXPORT ConsoleTarget final : public Sink {
public:
    explicit ConsoleTarget(int threshold = Info);

    int threshold(const Category& category) const override;
    void logMessage(const Category& category, const Message& message) override;

private:
    ~ConsoleTarget() override;

    const int _threshold;
};

} // namespace fn::logging
