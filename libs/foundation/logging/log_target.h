#pragma once
#include "foundation/ref_counted.h"
#include "foundation/string.h"

namespace fn {

/// Where finished log text is written. Shared by sinks; thread-safe.
class FN_EXPORT LogTarget : public RefCountedObject {
public:
    /// Writes one entry whole: entries of several threads and processes never mix. Does not throw; what cannot be
    /// written is lost, since nobody who logs could mend it.
    virtual void write(const String& text) = 0;

protected:
    ~LogTarget() override;
};

} // namespace fn
