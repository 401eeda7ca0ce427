// A module with one service: "pid".
#include "core/ipc/run_module.h"
#include "support/worker.h"
#include <unistd.h>

namespace {

class ServiceModule final : public ipc::Module {
public:
    using Module::Module;

    void onConnected() override
    {
        _service = fn::makeAuto<test::Service>(worker());
        _service->answer = [this](const test::Service::Call& call) { _service->sendResult(call.context, getpid()); };
        worker().registry()->registerObject(_service, 0);
    }

private:
    fn::AutoPtr<test::Service> _service;
};

} // namespace

IPC_MODULE_ENTRY_POINT(ServiceModule, "Service")
