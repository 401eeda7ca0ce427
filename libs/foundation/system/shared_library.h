#pragma once
#include "base/exceptions.h"
#include "base/string.h"

namespace fn {

/// A shared library brought into this process. It stays until the process ends: objects and functions of it may be in
/// use anywhere, so neither the destructor nor a failed start of a module unloads it.
class FN_EXPORT SharedLibrary {
public:
    static constexpr int ResolveNow = 1; ///< Resolves all symbols now: a missing one fails the load, not a later call.
    static constexpr int KeepLoaded = 8; ///< Changes nothing: libraries are never unloaded.

    /// Loads a library and hides its symbols from other libraries. `fn::FileException` with the loader's message if that fails,
    /// `fn::RuntimeException` if this object has loaded one already, `fn::RangeException` for flags other than those above.
    void load(const String& path, int flags = ResolveNow | KeepLoaded);
    bool isLoaded() const noexcept { return _handle != nullptr; } ///< Whether `load()` has succeeded.

    /// The address of an exported symbol. `fn::RuntimeException` if the symbol is unknown or no library is loaded.
    void* symbol(const String& name) const;

private:
    void* _handle = nullptr;
    String _path;
};

} // namespace fn
