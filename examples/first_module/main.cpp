// Starts the greeter in a process of its own, asks it for a greeting, and ends both.
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc/registry.h"
#include "core/services/app_info.h"
#include "foundation/uv/loop.h"
#include "greeter.h"
#include <cstdio>

int main()
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    ipc::Dispatcher dispatcher(fn::RunLoop::defaultLoop().uvLoop(), fn::Duration::seconds(30));
    dispatcher.bind();
    dispatcher.start();

    int status = 1;
    ipc::ModuleManager manager(
        dispatcher, { ipc::ModuleDefinition::create("greeter", "module_loader", false, false, false) });
    const auto end = [&](const char* text, int newStatus) {
        std::puts(text);
        status = newStatus;
        manager.stop();
        dispatcher.stop(fn::Duration(), {});
    };
    const auto failing = manager.onFatalError().connect([&](const fn::String& message) { end(message.c_str(), 1); });
    const auto connected = manager.onAllModulesConnected().connect([&] {
        dispatcher.worker()
            .registry()
            ->getInstance<Greeter>(fn::Duration::seconds(10))
            .then([](fn::AutoPtr<Greeter>&& greeter) { return greeter->greet("world"); })
            .then([&](fn::String&& greeting) { end(greeting.c_str(), 0); },
                [&](std::exception_ptr) { end("The greeter does not answer.", 1); });
    });
    manager.start(); // Runs the loop until the dispatcher stops it.
    return status;
}
