#pragma once
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/uv/signal_watcher.h"
#include "skyfold/options.h"
#include <vector>

namespace media {

/// The main program: the hub, the module manager, and what becomes of all processes at the end.
class Program {
public:
    explicit Program(Options options); ///< `core::AppInfo` has been initialized.
    ~Program();

    int run(); ///< Once. The exit code.

private:
    void offerApplication();
    void end(int exitCode, const fn::String& message = {});
    void endChildren();

    const Options _options;
    ipc::Dispatcher _dispatcher;
    std::vector<ipc::ModuleDefinition*> _processes; // The manager's.
    ipc::ModuleManager _manager;
    std::vector<fn::Handle> _connections;
    std::vector<std::unique_ptr<fn::uv::SignalWatcher>> _signals;
    bool _isEnding = false;
    int _exitCode;
    fn::String _message; // For the user, after everything else has been said.
};

} // namespace media
