// Rung 3: a property. A value that belongs to a service; others read it, or watch it: its value now, and then each new one.
//
// This file is compiled twice: as the module 3_property, which gets a process of its own, and as the program that starts it.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <fmt/format.h>

struct Heating : ipc::Interface<Heating> {
    ipc::Method<void(int degrees)> warmBy;
    ipc::Property<int> temperature { 18 };
    IPC_MEMBERS(warmBy, temperature)
};

// --- The module

class HeatingService final : public ipc::Service<HeatingService, Heating> {
public:
    using Service::Service;
    void warmBy(int degrees)
    {
        shared.temperature = *shared.temperature + degrees;
    } // Setting it tells those who watch.
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<HeatingService>, "Heating")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    const auto heating = co_await app.find<Heating>();
    fmt::print("read: {}\n", co_await heating->temperature.get());

    const auto first = heating->temperature.watch([](int value) { fmt::print("first watcher: {}\n", value); });
    co_await heating->warmBy(2);
    co_await heating->warmBy(0); // The same value is no news.

    // Who comes late is told the value as it is now.
    const auto second = heating->temperature.watch([](int value) { fmt::print("second watcher: {}\n", value); });
    co_await heating->warmBy(1);
}

int main() { return ipc::Application({ .modules = { "3_property" } }).run(run); }
