#include "foundation/system/shared_library.h"
#include "base/exceptions.h"
#include <dlfcn.h>

namespace fn {
namespace {

String loaderMessage()
{
    const char* message = ::dlerror();
    return message ? String(message) : String("Unknown error of the loader");
}

} // namespace

void SharedLibrary::load(const String& path, int flags)
{
    if (flags & ~(ResolveNow | KeepLoaded)) {
        throw with(RangeException("Unknown load flags"), DetailInfo { "Flags: " + String::number(flags) });
    }
    if (_handle) throw with(RuntimeException("A library has already been loaded"), PathInfo { _path });

    const int mode =
        (flags & ResolveNow ? RTLD_NOW : RTLD_LAZY) | (flags & KeepLoaded ? RTLD_NODELETE : 0) | RTLD_LOCAL;
    _handle = ::dlopen(path.c_str(), mode);
    if (!_handle) throw with(FileException(loaderMessage()), PathInfo { path });
    _path = path;
}

void* SharedLibrary::symbol(const String& name) const
{
    // A null handle would mean the program itself to the loader.
    void* address = _handle ? ::dlsym(_handle, name.c_str()) : nullptr;
    if (address) return address;
    throw with(RuntimeException(_handle ? loaderMessage() : String("No library has been loaded")),
        DetailInfo { "Symbol: " + name }, PathInfo { _path });
}

} // namespace fn
