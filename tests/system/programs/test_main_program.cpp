// A main program with one module process: prints the module's pid each time it is connected.
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "support/worker.h"
#include <cstdio>

int main()
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    ipc::Dispatcher dispatcher(fn::RunLoop::defaultLoop().uvLoop(), fn::Duration::seconds(2));
    dispatcher.bind();
    dispatcher.start();
    auto& worker = dispatcher.worker();
    worker.registerObjectReferenceClass<test::ServiceReference>();
    ipc::ModuleManager manager(
        dispatcher, { ipc::ModuleDefinition::create("test_service_module", "module_loader", false, false, false) });
    fn::AutoPtr<test::ServiceReference> service;
    manager.onAllModulesConnected()
        .connect([&] {
            worker.registry()
                ->getInstance<test::ServiceReference>(fn::Duration::seconds(20))
                .then([&](fn::AutoPtr<test::ServiceReference>&& found) {
                    service = std::move(found);
                    return service->callMethod("pid");
                })
                .then([](fn::Value&& pid) {
                    std::puts(pid.asString().c_str());
                    std::fflush(stdout);
                });
        })
        .detach();
    manager.start();
    return 0;
}
