#include "core/ipc/run_module.h"
#include <vector>

namespace ipc {
namespace {

std::vector<std::unique_ptr<Module>>& keptModules()
{
    static auto& modules = *new std::vector<std::unique_ptr<Module>>; // No destructor: it must not run at exit.
    return modules;
}

} // namespace

void internal::keepModule(std::unique_ptr<Module> module) { keptModules().push_back(std::move(module)); }

void endModules()
{
    while (!keptModules().empty()) {
        const auto module = std::move(keptModules().back());
        keptModules().pop_back();
    }
}

} // namespace ipc
