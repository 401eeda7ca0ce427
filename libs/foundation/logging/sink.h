#pragma once
#include "foundation/logging/category.h"
#include "foundation/logging/message.h"

namespace fn::logging {

/// Where messages go. Called on the thread that logs, several at once; it takes no lock that a logging caller may hold.
/// An exception out of `write()` goes to `fn::unhandledException()`.
class FN_EXPORT Sink {
public:
    virtual ~Sink();
    /// The highest priority number wanted of that category; 0 for none.
    virtual int threshold(const Category& category) const = 0;
    virtual void write(const Message& message) = 0;
};

} // namespace fn::logging
