#pragma once
#include <cstdint>

namespace ipc {

/// What a module library exports as `extern "C"`: builds its module from the dispatcher's pipe path and the worker tag.
/// `separateProcess` is 1 where the loader process calls, 0 in the main process; `reserved` is 0.
using ModuleEntryPoint = void (*)(
    const char* pipePath, const char* workerTag, std::intptr_t separateProcess, std::intptr_t reserved);

inline constexpr const char* moduleEntryPointName = "moduleEntryPoint";

} // namespace ipc
