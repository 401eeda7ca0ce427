#pragma once
#include "base/ref_counted.h"
#include "foundation/logging/category.h"
#include "foundation/logging/message.h"

namespace fn::logging {

/// Receives messages, on the threads that log and on several at once. It must take no lock that a logging caller may hold. An
/// exception out of `logMessage()` goes to `fn::unhandledException()`. It may still be called while and shortly after another
/// thread removes it.
class FN_EXPORT Sink : public RefCountedObject {
public:
    /// The highest priority number wanted of that category; 0 for none. Default: every message. Asked when the sink or
    /// the category is new and at `CategoryManager::reload()`, under the manager's lock: it must not log.
    virtual int threshold(const Category& category) const;

    /// Called only with messages that `threshold()` lets through.
    virtual void logMessage(const Category& category, const Message& message) = 0;

protected:
    ~Sink() override;
};

} // namespace fn::logging
