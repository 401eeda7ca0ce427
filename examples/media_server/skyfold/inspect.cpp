#include "skyfold/inspect.h"
#include "core/application/single_instance.h"
#include "core/ipc/run_module.h"
#include "skyfold/ending_signals.h"
#include "skyfold/hub_address.h"
#include "skyfold/inspector_browser.h"
#include <cstdio>

namespace media {
namespace {

constexpr int signalled = 128;

/// The owner of a worker that shares no objects and only browses.
class Visitor final : public ipc::Module {
public:
    explicit Visitor(const fn::String& pipePath) : Module(ipc::ModuleInitData(pipePath, "inspect", {}, {}, true)) { }

    int exitCode = 0;

private:
    void onConnected() override { scope().start(browse()); }
    void onAboutToQuit() override
    {
        std::fputs("skyfold: the Skyfold that was running has ended\n", stderr);
        exitCode = 1;
        terminate();
    }
    fn::Promise<void> browse()
    {
        InspectorBrowser browser(worker());
        co_await browser.run();
        terminate();
    }
};

} // namespace

int inspectRunning()
{
    const auto address = ipc::SingleInstance::isRunning() ? HubAddress::find() : std::nullopt;
    if (!address) return -1;
    auto visitor = std::make_unique<Visitor>(*address);
    const int received = runUntilSignal(fn::RunLoop::defaultLoop().uvLoop());
    const int exitCode = received == 0 ? visitor->exitCode : signalled + received;
    ipc::endModule(std::move(visitor));
    return exitCode;
}

} // namespace media
