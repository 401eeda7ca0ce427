#pragma once
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/uv/signal_watcher.h"
#include "skyfold/application_service.h"
#include "skyfold/command.h"
#include "skyfold/options.h"
#include "skyfold/single_instance.h"
#include <deque>
#include <optional>
#include <set>
#include <vector>

namespace media {

/// The main program: the hub, the module manager, and what becomes of all processes at the end.
class Program final : ApplicationService::Owner {
public:
    /// `core::AppInfo` has been initialized, logging has begun. `instance` is the first one; borrowed.
    Program(Options options, SingleInstance& instance);
    ~Program();

    int run(); ///< Once. The exit code.

private:
    RunOptions options() override { return _options.run; }
    void nextScan(NextScan answer) override;
    void announce(const fn::String& line) override;
    void finish(int exitCode, const fn::String& message) override { end(exitCode, message); }
    void onCommand(const fn::Value& value);
    std::vector<ipc::ModuleDefinition*> modules();
    void publishInspectors();
    void end(int exitCode, const fn::String& message = {});
    void endModules();

    const Options _options;
    SingleInstance& _instance;
    fn::uv::Loop& _loop;
    std::optional<ipc::Dispatcher> _dispatcher; // Empty at the end: goes before the processes have ended.
    std::vector<ipc::ModuleDefinition*> _processes; // The manager's.
    /// Whose processes have had a worker, by their names: one whose worker has gone is ending by itself.
    std::set<fn::String> _connected;
    ipc::ModuleManager _manager;
    NextScan _onNextScan; // Of a console that waits, in a program that stays.
    std::deque<RunOptions> _nextScans; // What other starts of the program have handed over.
    std::vector<fn::Handle> _connections;
    std::vector<std::unique_ptr<fn::uv::SignalWatcher>> _signals;
    bool _isEnding = false;
    int _exitCode;
    fn::String _message; // For the user, after everything else has been said.
};

} // namespace media
