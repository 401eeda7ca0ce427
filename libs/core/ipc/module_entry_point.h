#pragma once
#include "base/exceptions.h"
#include "foundation/system/shared_library.h"
#include <cstdint>

namespace ipc {

/// The function that a module library exports as `extern "C"`. It makes the module that connects to `pipePath`, and runs it.
/// `separateProcess` is 1 in a process of the loader, 0 in the main process; `hasParameters` is 1 for a module that is to fetch parameters,
/// else 0.
using ModuleEntryPoint = void (*)(
    const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t hasParameters);

inline constexpr const char* moduleEntryPointName = "moduleEntryPoint"; ///< The symbol that a module library exports.

/// On the loader's command line, behind the worker tag: the module is to fetch parameters.
inline constexpr const char* parametersArgument = "parameters";

/// Throws a `fn::FileException` that says what to do if there is no file that can be read as a module library.
FN_EXPORT void requireModuleLibrary(const fn::String& path);

/// Loads a module library and gives its entry point. What is wrong with it is a `fn::FileException` that says what to do.
FN_EXPORT ModuleEntryPoint loadModule(fn::SharedLibrary& library, const fn::String& path);

} // namespace ipc
