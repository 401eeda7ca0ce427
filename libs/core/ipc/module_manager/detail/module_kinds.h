#pragma once
#include "base/auto_ptr.h"
#include "base/lifetime.h"
#include "core/ipc/module_manager/module_definition.h"
#include "foundation/system/shared_library.h"
#include "foundation/uv/process.h"
#include <vector>

namespace ipc {

/// A module that runs as a process of its own: from `launch()` until the process exits or `kill()`; else the module is idle.
/// The process inherits the three standard streams and nothing else.
class ExternalModule : public ModuleDefinition {
public:
    ExternalModule(fn::String executablePath, bool extendedSpawnFlags);

    bool runsMainLoop() override { return false; }
    /// The module must be idle. Otherwise a broken invariant is reported, and `fn::RuntimeException` thrown, so that the caller
    /// does not wait for a worker of that tag.
    void launch(Dispatcher& dispatcher, const fn::String& workerTag) override;
    void kill() override; ///< Sends signal 9. The process is reaped, but `onExit()` does not fire.
    bool isSeparateProcess() override { return true; }
    std::optional<fn::String> executablePath() override { return _executablePath; }
    ~ExternalModule() override;
    bool sendSignal(int signal) override;

    /// The arguments behind the executable path on the command line.
    virtual std::vector<fn::String> arguments(Dispatcher& dispatcher, const fn::String& workerTag) = 0;

private:
    const fn::String _executablePath;
    fn::AutoPtr<fn::uv::Process> _process; // Empty while idle.
    const bool _extendedSpawnFlags;
    fn::Lifetime _lifetime;
};

/// A module library that the generic loader runs: `LOADER LIBRARY PIPE_PATH WORKER_TAG`, with `parameters` behind it if it has some.
class DefaultExternalModule final : public ExternalModule {
public:
    DefaultExternalModule(fn::String name, fn::String executablePath, bool extendedSpawnFlags);
    fn::String name() override { return _name; }
    ~DefaultExternalModule() override;
    std::vector<fn::String> arguments(Dispatcher& dispatcher, const fn::String& workerTag) override;

private:
    const fn::String _name;
};

/// A module library loaded into this process, at most once: it cannot be relaunched or killed.
class InProcessModule final : public ModuleDefinition {
public:
    InProcessModule(fn::String name, bool runsMainLoop);

    bool runsMainLoop() override { return _runsMainLoop; }
    void launch(Dispatcher& dispatcher, const fn::String& workerTag) override;
    void kill() override;
    bool isSeparateProcess() override { return false; }
    std::optional<fn::String> executablePath() override { return std::nullopt; }
    fn::String name() override { return _name; }
    ~InProcessModule() override;

private:
    const fn::String _name;
    fn::SharedLibrary _library;
    const bool _runsMainLoop;
};

} // namespace ipc
