// A main program with one module process, for a test that kills it: prints the module's pid once it is connected.
#include "core/app_info.h"
#include "core/ipc/module_manager/module_manager.h"
#include "support/worker.h"
#include <cstdio>

int main()
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    ipc::Dispatcher dispatcher(loop, fn::Duration::seconds(30));
    dispatcher.bind();
    dispatcher.start();
    ipc::ModuleManager manager(
        dispatcher, { ipc::ModuleDefinition::create("test_service_module", "module_loader", false, false, false) });
    fn::AutoPtr<test::ServiceReference> service;
    dispatcher.onReady()
        .connect([&] {
            dispatcher.worker().registerObjectReferenceClass<test::ServiceReference>();
            dispatcher.worker()
                .registry()
                ->getInstance<test::ServiceReference>(fn::Duration::seconds(20))
                .then([&](fn::AutoPtr<test::ServiceReference>&& found) {
                    service = std::move(found);
                    service->callMethod("pid", {}).then([](fn::Value&& pid) {
                        std::printf("%s\n", pid.asString().c_str());
                        std::fflush(stdout);
                    });
                });
        })
        .detach();
    manager.start();
    return 0;
}
