// Rung 8: a relaunch survived. A module that ends is started anew, and an ipc::Remote finds its next object.
//
// This file is compiled twice: as the module 8_relaunch, which gets a process of its own, and as the program that starts it.
#include "core/application/application.h"
#include "core/ipc/interface/remote.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <csignal>
#include <fmt/format.h>
#include <unistd.h>

struct Machine : ipc::Interface<Machine> {
    ipc::Method<int()> process; // Gives its number.
    ipc::Method<int(int victim)> crash; // Kills the process of that number.
    ipc::Method<int(int victim), ipc::Repeatable> crashAndRepeat; // The same, but the call may be made again.
    IPC_MEMBERS(process, crash, crashAndRepeat)
};

// --- The module

class MachineService final : public ipc::Service<MachineService, Machine> {
public:
    using Service::Service;
    int process() { return ::getpid(); }
    int crash(int victim)
    {
        if (victim == ::getpid()) std::raise(SIGKILL);
        return ::getpid();
    }
    int crashAndRepeat(int victim) { return crash(victim); }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<MachineService>, "Machine")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    ipc::Remote<Machine> machine(app.worker()); // Looks for the object when it is used first.
    const auto going = machine.onGone().connect([] { fmt::print("the process has gone\n"); });
    const auto first = co_await machine->process();
    try {
        co_await machine->crash(first);
    } catch (const ipc::ObjectDeadException&) {
        fmt::print("the call has failed: nobody knows how far it came\n");
    }
    const auto second = co_await machine->process(); // Waits for the next process, `patience` at most.
    fmt::print("another process: {}\n", second != first);

    const auto third = co_await machine->crashAndRepeat(second); // Sent again to the next one.
    fmt::print("yet another process: {}\n", third != second);
}

int main() { return ipc::Application({ .modules = { "8_relaunch" } }).run(run); }
