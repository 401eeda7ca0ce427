#pragma once
#include "base/exceptions.h"
#include "base/string.h"

namespace fn {

/// A shared library brought into this process. It stays until the process ends: objects and functions of it may be in
/// use anywhere, so neither the destructor nor a failed start of a module unloads it.
class FN_EXPORT SharedLibrary {
public:
    static constexpr int ResolveNow = 1; ///< All symbols at once; a missing one fails the load instead of a later call.
    static constexpr int KeepLoaded = 8;

    /// Loads it, its symbols hidden from other libraries. `fn::FileException` with the loader's message if that fails
    /// or if this object has loaded one already. Flags other than those above are `fn::RangeException`.
    void load(const String& path, int flags = ResolveNow | KeepLoaded);
    bool isLoaded() const noexcept { return _handle != nullptr; }

    /// Address of an exported symbol. Unknown, or nothing loaded: `fn::RuntimeException`.
    void* symbol(const String& name) const;

private:
    void* _handle = nullptr;
    String _path;
};

} // namespace fn
