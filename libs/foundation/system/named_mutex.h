#pragma once
#include "base/exceptions.h"
#include "base/file_descriptor.h"

namespace fn {

/// A name that only one holder at a time can have among all processes of this user. An object holds the name until it is destroyed
/// or its process ends in any way; programs that the process starts do not inherit the name. Thread-safe.
///
/// The name is a lock on the file NAME.lock in the user's private folder (`platform::privatePath()`). Processes that see another
/// `XDG_RUNTIME_DIR`, or without it another `TMPDIR`, have another folder, in which the name has another holder. If somebody
/// removes the file while the name is held, another process can take the name, too.
class FN_EXPORT NamedMutex {
public:
    /// With `exclusive` the object takes the name: `NamedMutexAlreadyExistsException` if an object of this process or another one
    /// holds it. Otherwise the object holds nothing, and everybody may take the name. `fn::IOException` if the name holds '/', NUL
    /// or '..', or if the file cannot be locked.
    NamedMutex(const String& name, bool exclusive);
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;
    ~NamedMutex();

private:
    FileDescriptor _lock; // Owns no file unless exclusive.
};

} // namespace fn
