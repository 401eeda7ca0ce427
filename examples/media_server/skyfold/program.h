#pragma once
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/coroutine/scope.h"
#include "skyfold/command.h"
#include "skyfold/inspector_browser.h"
#include "skyfold/options.h"
#include "skyfold/single_instance.h"
#include <deque>
#include <optional>

namespace media {

/// The main program: the hub, the module manager, and the end of all processes.
class Program {
public:
    /// `core::AppInfo` is initialized, and logging has begun. Borrows `instance`, which is the first one.
    Program(Options options, SingleInstance& instance);
    ~Program();

    int run(); ///< To be called once. Gives the exit code.

private:
    class ApplicationService;

    fn::Promise<std::optional<RunOptions>> nextScan();
    void onCommand(const fn::Value& value);
    void onAnnouncement(const fn::String& name, const fn::Value& body);
    void onReady();
    fn::Promise<void> browse();
    void end(const Ending& ending);
    void endAll();

    const Options _options;
    SingleInstance& _instance;
    fn::uv::Loop& _loop;
    std::optional<ipc::Dispatcher> _dispatcher; // Destroyed before the processes have ended.
    ipc::ModuleManager _manager;
    std::deque<RunOptions> _nextScans; // Scans that other starts of the program have handed over.
    fn::Signal<> _onScan; // One has been handed over.
    bool _isEnding = false;
    Ending _ending;
    fn::Scope _scope; // Ends before the hub does.
};

} // namespace media
