// Talks to the user, in the main process, whose loop it runs.
#include "console/scan_run.h"
#include "core/ipc/run_module.h"

namespace media {

class ConsoleModule final : public ipc::Module {
public:
    using Module::Module;

    void onConnected() override { scope().start(work()); }
    void onAboutToQuit() override { scope().cancel(); }

private:
    fn::Promise<void> work()
    {
        try {
            co_await _run.run();
        } catch (const fn::Exception&) { // There is no main program to tell.
            worker().loop().stop(); // It takes a loop that ends of itself for a failure.
        }
    }

    ScanRun _run { worker() };
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::ConsoleModule, "console")
