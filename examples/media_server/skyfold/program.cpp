#include "skyfold/program.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "foundation/run_loop.h"
#include "skyfold/application_service.h"
#include "skyfold/children.h"
#include <csignal>
#include <cstdio>

namespace media {
namespace {

constexpr int failed = 1;
constexpr int signalled = 128; // And the signal's number.

constexpr auto notRespondingTimeout = fn::Duration::seconds(30);

// Someone who has pressed Ctrl-C waits for a second at most: half of it for those who end by themselves.
constexpr auto graceTime = fn::Duration::milliseconds(500);
constexpr auto reapTime = fn::Duration::milliseconds(300);

constexpr const char* loader = "module_loader";

} // namespace

Program::Program(Options options)
    : _options(std::move(options)),
      _loop(fn::RunLoop::defaultLoop().uvLoop()),
      _dispatcher(std::in_place, _loop, notRespondingTimeout),
      _processes { ipc::ModuleDefinition::create("library", loader, false, false, false),
          ipc::ModuleDefinition::create("scanner", loader, false, false, false) },
      _manager(*_dispatcher,
          { ipc::ModuleDefinition::create("console", loader, true, true, false), _processes[0], _processes[1] }),
      _exitCode(failed),
      _message("The console has ended unexpectedly.")
{
}

Program::~Program() = default;

int Program::run()
{
    for (const int signal : { SIGINT, SIGTERM, SIGHUP }) {
        _signals.push_back(
            std::make_unique<fn::uv::SignalWatcher>(_loop, signal, [this, signal] { end(signalled + signal); }));
    }
    _connections.push_back(_dispatcher->onReady().connect([this] { offerApplication(); }));
    _connections.push_back(
        _manager.onFatalError().connect([this](const fn::String& message) { end(failed, message); }));
    using WorkerInfo = ipc::Dispatcher::WorkerInfo;
    _connections.push_back(_dispatcher->onWorkerConnected().connect(
        [this](const WorkerInfo& info) { _connected.insert(info.displayName); }));
    _connections.push_back(_dispatcher->onWorkerDisconnected().connect(
        [this](const WorkerInfo& info) { _connected.erase(info.displayName); }));
    _dispatcher->bind();
    _dispatcher->start();
    _manager.start(); // Runs the loop, through the console.
    endModules();
    if (!_message.empty()) std::fprintf(stderr, "skyfold: %s\n", _message.c_str());
    return _exitCode;
}

void Program::offerApplication()
{
    auto& worker = _dispatcher->worker();
    const auto service = fn::makeAuto<ApplicationService>(
        worker, _options.run, [this](int exitCode, const fn::String& message) { end(exitCode, message); });
    worker.registry()->registerObject(service, 0);
}

/// The first reason to end counts.
void Program::end(int exitCode, const fn::String& message)
{
    if (std::exchange(_isEnding, true)) return;
    _exitCode = exitCode;
    _message = message;
    _manager.stop();
    _dispatcher->stop(fn::Duration(), {});
}

void Program::endModules()
{
    _isEnding = true; // Also where the loop has ended for another reason: signals change nothing any more.
    _manager.stop();
    ipc::endModules();
    // One that has just been launched has nothing to end, and would complain that it finds no hub.
    for (auto* process : _processes) {
        if (!_connected.contains(process->name())) process->kill();
    }
    _connections.clear();
    _dispatcher.reset(); // What others have not read of their end they see now.
    awaitChildren(_loop, graceTime);
    for (auto* process : _processes) process->kill();
    reapChildren(reapTime);
}

} // namespace media
