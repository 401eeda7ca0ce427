#include "skyfold/inspect.h"
#include "api/inspector_browser.h"
#include "core/ipc/worker/worker.h"
#include "core/services/process_lock.h"
#include "skyfold/hub_address.h"
#include "skyfold/run_until_signal.h"
#include "skyfold/single_instance.h"
#include <cstdio>

namespace media {
namespace {

constexpr int signalled = 128;

/// A participant that only looks.
class Visitor final : public ipc::Worker::Delegate {
public:
    Visitor(fn::uv::Loop& loop, const fn::String& pipePath)
        : _loop(loop),
          _worker(*this, loop, pipePath, "inspect", fn::String(), false)
    {
        _worker.connect();
    }
    ~Visitor()
    {
        if (_browser) _browser->stop();
    }

    int exitCode = 0;

private:
    void workerDidConnect(ipc::Worker& worker) override
    {
        _browser = fn::makeAuto<InspectorBrowser>(worker, [this] { _loop.stop(); });
        _browser->start();
    }
    bool wantsIdleTermination(ipc::Worker&) override { return false; }
    bool workerCanTerminate(ipc::Worker&) override { return true; }
    void workerRequestsTermination(ipc::Worker&) override { }
    void aboutToQuit(ipc::Worker&) override
    {
        std::fputs("skyfold: the Skyfold that was running has ended\n", stderr);
        exitCode = 1;
        _loop.stop();
    }

    fn::uv::Loop& _loop;
    ipc::Worker _worker;
    fn::AutoPtr<InspectorBrowser> _browser; // Once connected.
};

} // namespace

int inspectRunning()
{
    const auto address = SingleInstance::isRunning() ? HubAddress::find() : std::nullopt;
    if (!address) return -1;
    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    Visitor visitor(loop, *address);
    const int received = runUntilSignal(loop);
    return received == 0 ? visitor.exitCode : signalled + received;
}

} // namespace media
