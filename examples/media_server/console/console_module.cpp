// Talks to the user, in the main process, whose loop it runs.
#include "console/scan_run.h"
#include "core/ipc/run_module.h"

namespace media {

class ConsoleModule final : public ipc::Module {
public:
    using Module::Module;

    ~ConsoleModule() override
    {
        if (_run) _run->stop();
    }

    void onConnected() override
    {
        _run = fn::makeAuto<ScanRun>(worker());
        _run->start();
    }

    void onAboutToQuit() override
    {
        if (_run) _run->stop();
    }

private:
    fn::AutoPtr<ScanRun> _run; // Empty until connected.
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::ConsoleModule, "console")
