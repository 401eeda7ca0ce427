// Rung 1: one call. An interface is what two processes agree on, a service carries it out, and a program calls it.
//
// This file is compiled twice: as the module 1_one_call, which gets a process of its own, and as the program that starts it.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <cstdio>

struct Greeter : ipc::Interface<Greeter> {
    ipc::Method<fn::String(fn::String name)> greet;
    IPC_MEMBERS(greet) // C++ does not tell the names of members: each stands here once more.
};

// --- The module

class GreeterService final : public ipc::Service<GreeterService, Greeter> {
public:
    using Service::Service;
    fn::String greet(const fn::String& name) { return "Hello, " + name + "!"; } // Named as in the interface.
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<GreeterService>, "Greeter")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    const auto greeter = co_await app.find<Greeter>(); // Waits until the module has offered its object.
    const auto greeting = co_await greeter->greet("Ada");
    std::puts(greeting.c_str());
}

int main()
{
    return ipc::Application({ .modules = { "1_one_call" } }).run(run);
} // Ends, with the module, when `run` does.
