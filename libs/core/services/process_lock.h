#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include <memory>

namespace fn {
class NamedMutex;
}

namespace core {

/// Tells whether this process is the only one of its user under a name: whether an application runs already, say. The name
/// is held as long as a copy of the lock exists; it never changes hands while one does. Copies may live on any thread.
///
/// One `fn::NamedMutex`, "NAME-USER": what that says of two runtime folders of one user holds here, too.
class FN_EXPORT ProcessLock {
public:
    /// A name that is taken already is no error. Any other failure to take it is `fn::IOException`.
    ProcessLock(const fn::String& name);
    ProcessLock(const ProcessLock&);
    ProcessLock& operator=(const ProcessLock&);
    ~ProcessLock();

    bool exclusive() const noexcept { return _exclusive; } ///< Whether the name is ours.

private:
    std::shared_ptr<fn::NamedMutex> _mutex;
    bool _exclusive = false;
};

} // namespace core
