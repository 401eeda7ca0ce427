#pragma once
#include "base/ref_counted.h"
#include "base/string.h"

namespace fn {

/// A place where finished log text is written. Shared by sinks; thread-safe.
class FN_EXPORT LogTarget : public RefCountedObject {
public:
    /// Writes one entry whole: entries of several threads and processes never mix. Does not throw, and waits for no reader. An
    /// entry that cannot be written is lost, since the caller could not help it, and counted: a line before the next entry that
    /// is written tells how many.
    virtual void write(const String& text) = 0;

protected:
    ~LogTarget() override;
};

} // namespace fn
