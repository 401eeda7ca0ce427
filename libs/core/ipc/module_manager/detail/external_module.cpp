#include "base/exceptions.h"
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/module_entry_point.h"
#include "core/ipc/module_manager/detail/module_kinds.h"
#include "foundation/assertion.h"
#include "foundation/logging/logging.h"

namespace ipc {
namespace {

constexpr unsigned spawnFlags = 0x10;
constexpr unsigned extendedFlags = 0x80;
constexpr int inherit = 2; // Kind of a standard stream.
constexpr int standardHandles[] = { -10, -11, -12 }; // Input, output, error.
constexpr int killSignal = 9;

FN_LOG_CATEGORY("ipc.moduleLoader");

} // namespace

ExternalModule::ExternalModule(fn::String executablePath, bool extendedSpawnFlags)
    : _executablePath(std::move(executablePath)),
      _extendedSpawnFlags(extendedSpawnFlags)
{
}

ExternalModule::~ExternalModule() = default;

void ExternalModule::launch(Dispatcher& dispatcher, const fn::String& workerTag)
{
    if (!FN_ASSERT(!_process, fn::sites::moduleRunsOnce)) {
        throw fn::RuntimeException("The process of module " + name() + " is still running");
    }
    fn::uv::ProcessOptions options;
    options.file = _executablePath;
    options.flags = _extendedSpawnFlags ? spawnFlags | extendedFlags : spawnFlags;
    options.arguments.push_back(_executablePath);
    for (auto& argument : arguments(dispatcher, workerTag)) options.arguments.push_back(std::move(argument));
    for (const int handle : standardHandles) options.streams.push_back({ inherit, handle });
    options.onExit = [this](std::int64_t status, int signal) {
        const auto watch = _lifetime.watch();
        const auto process = _process;
        onExit().fire(status, signal);
        if (watch && _process == process)
            _process.reset(); // Otherwise a listener has destroyed this module, or launched it anew.
    };
    FN_LOG(Debug, "About to launch module loader at {}", _executablePath);
    const auto started = fn::makeAuto<fn::uv::Process>(dispatcher.loop());
    try {
        started->spawn(std::move(options));
    } catch (fn::IOException& failure) {
        failure.attach(fn::DetailInfo {
            "This program runs the modules; it comes with skyfold-core, and an application has a link to it" });
        throw;
    }
    _process = started;
}

void ExternalModule::kill()
{
    if (!_process) return;
    // `onExit()` does not fire for a dropped process: the caller of `kill()` relaunches the module, and nobody else does.
    const auto process = std::exchange(_process, {});
    process->kill(killSignal);
}

bool ExternalModule::sendSignal(int signal)
{
    if (!_process || !_process->isRunning()) return false;
    _process->kill(signal);
    return true;
}

DefaultExternalModule::DefaultExternalModule(fn::String name, fn::String executablePath, bool extendedSpawnFlags)
    : ExternalModule(std::move(executablePath), extendedSpawnFlags),
      _name(std::move(name))
{
}

DefaultExternalModule::~DefaultExternalModule() = default;

std::vector<fn::String> DefaultExternalModule::arguments(Dispatcher& dispatcher, const fn::String& workerTag)
{
    const auto library = pathForSharedLibrary(_name);
    requireModuleLibrary(library); // The loader would tell it to nobody but its standard error.
    std::vector<fn::String> all { library, dispatcher.pipePath(), workerTag };
    if (hasParameters()) all.emplace_back(parametersArgument);
    return all;
}

} // namespace ipc
