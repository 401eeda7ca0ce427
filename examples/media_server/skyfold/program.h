#pragma once
#include "core/ipc/module_manager/module_manager.h"
#include "skyfold/application_service.h"
#include "skyfold/command.h"
#include "skyfold/inspector_browser.h"
#include "skyfold/options.h"
#include "skyfold/single_instance.h"
#include <deque>
#include <optional>
#include <vector>

namespace media {

/// The main program: the hub, the module manager, and the end of all processes.
class Program final : ApplicationService::Owner {
public:
    /// `core::AppInfo` is initialized, and logging has begun. Borrows `instance`, which is the first one.
    Program(Options options, SingleInstance& instance);
    ~Program();

    int run(); ///< To be called once. Gives the exit code.

private:
    RunOptions options() override { return _options.run; }
    void nextScan(NextScan answer) override;
    void finish(int exitCode, const fn::String& message) override { end(exitCode, message); }
    void onCommand(const fn::Value& value);
    void onAnnouncement(const fn::String& name, const fn::Value& body);
    void onReady();
    void end(int exitCode, const fn::String& message = {});
    void endAll();

    const Options _options;
    SingleInstance& _instance;
    fn::uv::Loop& _loop;
    std::optional<ipc::Dispatcher> _dispatcher; // Destroyed before the processes have ended.
    ipc::ModuleManager _manager;
    NextScan _onNextScan; // Set while the console waits for a scan, in a program that stays.
    std::deque<RunOptions> _nextScans; // Scans that other starts of the program have handed over.
    std::vector<fn::Handle> _connections;
    fn::AutoPtr<InspectorBrowser> _browser; // Set if the user browses inspectors on the terminal.
    bool _isEnding = false;
    int _exitCode;
    fn::String _message; // For the user, printed last.
};

} // namespace media
