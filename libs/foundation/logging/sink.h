#pragma once
#include "base/ref_counted.h"
#include "foundation/logging/category.h"
#include "foundation/logging/message.h"

namespace fn::logging {

/// Receives messages on the threads that log, on several at once. A sink must take no lock that a thread may hold while it logs. An
/// exception out of `logMessage()` goes to `fn::unhandledException()`. A sink may still be called while another thread removes it,
/// and shortly afterwards.
class FN_EXPORT Sink : public RefCountedObject {
public:
    /// The highest priority number that the sink wants of the category; 0 for none. Default: every message. Called when the sink or
    /// the category is new and by `CategoryManager::reload()`, under the manager's lock: an override must not log.
    virtual int threshold(const Category& category) const;

    /// Called only with messages that `threshold()` lets through.
    virtual void logMessage(const Category& category, const Message& message) = 0;

protected:
    ~Sink() override;
};

} // namespace fn::logging
