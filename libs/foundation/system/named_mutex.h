#pragma once
#include "base/exceptions.h"
#include "base/file_descriptor.h"

namespace fn {

/// A name that one holder at a time has among all processes of this user. Held until the object goes or its process ends,
/// however it ends; programs started meanwhile do not inherit it. Thread-safe.
///
/// It is the lock on a file NAME.lock in the user's private folder (`platform::privatePath()`). Processes of one user that see
/// another `XDG_RUNTIME_DIR`, or without it another `TMPDIR`, have another folder, and each of the two a holder of the name.
/// So has whoever comes after the file was removed.
class FN_EXPORT NamedMutex {
public:
    /// `exclusive` takes the name: `NamedMutexAlreadyExistsException` where somebody, in this process or another, has it.
    /// Otherwise the object holds nothing, and keeps nobody from taking the name. `fn::IOException` where the name holds
    /// '/', NUL or '..', or the system does not let us lock.
    NamedMutex(const String& name, bool exclusive);
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;
    ~NamedMutex();

private:
    FileDescriptor _lock; // Owns nothing unless exclusive.
};

} // namespace fn
