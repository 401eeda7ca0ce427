// Rung 2: events. A service fires them; everybody who has a reference, in whichever process, can hear them.
//
// This file is compiled twice: as the module 2_events, which gets a process of its own, and as the program that starts it.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <fmt/format.h>

struct Kitchen : ipc::Interface<Kitchen> {
    ipc::Method<void(fn::String dish)> cook;
    ipc::Event<fn::String, int> progress; // The dish, and how many percent of it are done.
    IPC_MEMBERS(cook, progress)
};

// --- The module

class KitchenService final : public ipc::Service<KitchenService, Kitchen> {
public:
    using Service::Service;
    void cook(const fn::String& dish)
    {
        for (const int percent : { 50, 100 }) shared.progress(dish, percent); // Fired like a function is called.
    }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<KitchenService>, "Kitchen")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    const auto kitchen = co_await app.find<Kitchen>();
    auto hearing =
        kitchen->progress.connect([](const fn::String& dish, int percent) { fmt::print("{}: {} %\n", dish, percent); });
    co_await kitchen->cook("soup"); // What was fired before the answer is heard before the answer.
    fmt::print("The soup is there.\n");

    hearing = {}; // Whoever gives the handle away hears no more.
    co_await kitchen->cook("cake");
    fmt::print("The cake is there, too.\n");
}

int main() { return ipc::Application({ .modules = { "2_events" } }).run(run); }
