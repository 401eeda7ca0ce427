#pragma once
#include "base/ref_counted.h"
#include "base/string.h"

namespace fn {

/// Where finished log text is written. Shared by sinks; thread-safe.
class FN_EXPORT LogTarget : public RefCountedObject {
public:
    /// Writes one entry whole: entries of several threads and processes never mix. Does not throw, and waits for no reader;
    /// what cannot be written is lost, since nobody who logs could mend it, and counted: the next entry that can be written
    /// comes behind a line that tells how many.
    virtual void write(const String& text) = 0;

protected:
    ~LogTarget() override;
};

} // namespace fn
