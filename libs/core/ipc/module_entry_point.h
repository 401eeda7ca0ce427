#pragma once
#include <cstdint>

namespace ipc {

/// The function that a module library exports as `extern "C"`. It makes the module that connects to `pipePath`, and runs it.
/// `separateProcess` is 1 in a process of the loader, 0 in the main process; `reserved` is 0.
using ModuleEntryPoint = void (*)(
    const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t reserved);

inline constexpr const char* moduleEntryPointName = "moduleEntryPoint";

} // namespace ipc
