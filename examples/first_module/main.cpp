#include "core/application/application.h"
#include "greeter.h"
#include <cstdio>

fn::Promise<void> run(ipc::Application& app)
{
    const auto greeter = co_await app.find<Greeter>();
    const auto greeting = co_await greeter->greet("world");
    std::puts(greeting.c_str());
}

int main() { return ipc::Application({ .modules = { "greeter" } }).run(run); } // Ends with `run`, and with Ctrl-C.
