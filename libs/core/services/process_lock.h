#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include <memory>

namespace fn {
class NamedMutex;
}

namespace core {

/// Tells whether this process is the only one of its user that holds a name: for example whether an application runs already.
/// The process holds the name as long as a copy of the lock exists. Copies may live on any thread.
///
/// The lock is a `fn::NamedMutex` "NAME-USER"; its remarks on two runtime folders of one user hold here, too.
class FN_EXPORT ProcessLock {
public:
    /// A name that is taken already is no error. Any other failure to take it is `fn::IOException`.
    ProcessLock(const fn::String& name);
    ProcessLock(const ProcessLock&);
    ProcessLock& operator=(const ProcessLock&);
    ~ProcessLock();

    bool exclusive() const noexcept { return _exclusive; } ///< Whether this process holds the name.

private:
    std::shared_ptr<fn::NamedMutex> _mutex;
    bool _exclusive = false;
};

} // namespace core
