// A module that ends with calls under way, and prints what becomes of them while it still exists. Launched with the worker tag
// "terminate" it ends itself, with "hang" it never returns to its loop.
#include "core/ipc/run_module.h"
#include "support/worker.h"
#include <cstdio>
#include <unistd.h>

namespace {

class BusyModule final : public ipc::Module {
public:
    explicit BusyModule(const ipc::ModuleInitData& data) : Module(data), _tag(data.workerTag()) { }
    ~BusyModule() override { tell("module destroyed"); }

    void onConnected() override
    {
        _service = fn::makeAuto<test::Service>(worker());
        _local = fn::dynamicCast<test::ServiceReference>(_service->localReference());
        const auto& registry = worker().registry();
        await("local call", _local->callMethod("never answered", {}));
        await("remote call", registry->getInstance<test::ServiceReference>(fn::Duration::seconds(60)));
        registry->objectDeadSignal()
            .connect([this] { await("call of the dead", _local->callMethod("x", {})); })
            .detach();
        tell("busy");
        if (_tag == "terminate") terminate();
        while (_tag == "hang") pause();
    }

private:
    template <typename Value> void await(const char* name, const fn::Promise<Value>& promise)
    {
        promise.then([](Value&&) {},
            [this, name](std::exception_ptr) {
                tell(std::string(name) + " rejected");
                worker().loop().post([this, name] { tell(std::string(name) + " followed by a task"); });
            });
    }

    void tell(const std::string& line)
    {
        ++_lines; // ASan sees a module that has gone.
        std::puts(line.c_str());
        std::fflush(stdout);
    }

    const fn::String _tag;
    int _lines = 0;
    fn::AutoPtr<test::Service> _service;
    fn::AutoPtr<test::ServiceReference> _local;
};

} // namespace

IPC_MODULE_ENTRY_POINT(BusyModule, "Busy")
