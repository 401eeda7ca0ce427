#include "core/ipc/module_manager/module_definition.h"
#include "core/ipc/module_manager/detail/module_kinds.h"
#include "foundation/system/path_manager.h"

namespace ipc {

ModuleDefinition::ModuleDefinition() = default;
ModuleDefinition::~ModuleDefinition() = default;
bool ModuleDefinition::sendSignal(int) { return false; }

ModuleDefinition* ModuleDefinition::create(
    const fn::String& name, const fn::String& loaderName, bool inProcess, bool runsMainLoop, bool extendedSpawnFlags)
{
    if (inProcess) return new InProcessModule(name, runsMainLoop);
    const auto executable = pathForExecutable(fn::PathManager::instance().namePrefix() + "." + loaderName);
    return new DefaultExternalModule(name, executable, extendedSpawnFlags);
}

fn::String ModuleDefinition::pathForExecutable(const fn::String& name)
{
    const auto& paths = fn::PathManager::instance();
    return paths.hasInstalledLayout() ? paths.getPath(8, "bin/" + name, false) : paths.getPath(0, "../" + name, false);
}

fn::String ModuleDefinition::pathForSharedLibrary(const fn::String& name)
{
    const auto file = name + ".dll";
    const auto& paths = fn::PathManager::instance();
    return paths.hasInstalledLayout() ? paths.getPath(8, "modules/" + file, false)
                                      : paths.getPath(0, "../modules/" + file, false);
}

} // namespace ipc
