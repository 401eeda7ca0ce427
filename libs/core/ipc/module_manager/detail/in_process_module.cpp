#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/module_entry_point.h"
#include "core/ipc/module_manager/detail/module_kinds.h"
#include "foundation/logging/logging.h"

namespace ipc {
namespace {

FN_LOG_CATEGORY("ipc.module");

} // namespace

InProcessModule::InProcessModule(fn::String name, bool runsMainLoop)
    : _name(std::move(name)),
      _runsMainLoop(runsMainLoop)
{
}

InProcessModule::~InProcessModule() = default;

void InProcessModule::launch(Dispatcher& dispatcher, const fn::String& workerTag)
{
    if (_library.isLoaded()) {
        FN_LOG(Warning, "Shared library for module {} has already been loaded", _name);
        return;
    }
    const auto entryPoint = loadModule(_library, pathForSharedLibrary(_name));
    entryPoint(dispatcher.pipePath().c_str(), workerTag.c_str(), 0, hasParameters() ? 1 : 0);
}

void InProcessModule::kill() { FN_LOG(Warning, "Can't kill in-process module {}", _name); }

} // namespace ipc
