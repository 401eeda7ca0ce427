#include "core/ipc/module_entry_point.h"
#include "base/exceptions.h"
#include <fmt/format.h>
#include <system_error>
#include <unistd.h>

namespace ipc {
namespace {

[[noreturn]] void fail(const fn::String& what, const char* advice, const fn::String& path)
{
    throw fn::with(
        fn::FileException(what, fn::Exception::StackTrace::None), fn::DetailInfo { advice }, fn::PathInfo { path });
}

} // namespace

void requireModuleLibrary(const fn::String& path)
{
    if (::access(path.c_str(), R_OK) == 0) return;
    fail(fmt::format("There is no module library that can be read: {}", std::generic_category().message(errno)),
        "A module's library is NAME.dll in the application's folder of modules: check the name, build or install the "
        "module, and see "
        "that this user may read it",
        path);
}

ModuleEntryPoint loadModule(fn::SharedLibrary& library, const fn::String& path)
{
    requireModuleLibrary(path);
    try {
        library.load(path);
    } catch (const fn::FileException& failure) {
        fail("The module library can not be loaded: " + failure.message(),
            "A module is a shared library for this machine, made with core_add_module() and with the version of "
            "skyfold-core that the "
            "application has: build it anew",
            path);
    }
    try {
        return reinterpret_cast<ModuleEntryPoint>(library.symbol(moduleEntryPointName));
    } catch (const fn::RuntimeException&) {
        fail(fmt::format("The library is no module: it has no function {}", moduleEntryPointName),
            "IPC_MODULE_ENTRY_POINT (core/ipc/run_module.h) makes one", path);
    }
}

} // namespace ipc
