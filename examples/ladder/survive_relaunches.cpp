// A reference that survives relaunches, with a service that knows nothing any more when it begins anew.
//
// This file is compiled twice: as the module survive_relaunches, which gets a process of its own, and as the program.
#include "core/application/application.h"
#include "core/ipc/interface/remote.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "foundation/coroutine/channel.h"
#include <csignal>
#include <fmt/format.h>

struct Player : ipc::Interface<Player> {
    ipc::Method<void(fn::String title), ipc::Repeatable> load; // Loading twice is loading once: it may be sent again.
    ipc::Method<void()> crash;
    ipc::Property<fn::String> title { "nothing" };
    IPC_MEMBERS(load, crash, title)
};

// --- The module

class PlayerService final : public ipc::Service<PlayerService, Player> {
public:
    using Service::Service;
    void load(const fn::String& title) { shared.title = title; }
    void crash() { std::raise(SIGKILL); }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<PlayerService>, "Player")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    ipc::Remote<Player> player(app.worker(), fn::Duration::seconds(10)); // How long a call waits for a process.
    const fn::String wanted = "Waltz"; // What the service is to know lies with who wants it, ...

    // ... and is told to each process that comes, the first one included.
    const auto coming = player.onCame().connect([&] { app.scope().start(player->load(wanted)); });
    fn::Channel<fn::String> titles(8);
    const auto watching = player->title.watch([&](const fn::String& title) { titles.send(title).ignore(); });

    while (*co_await titles.receive() != wanted) { }
    fmt::print("loaded\n");
    try {
        co_await player->crash();
    } catch (const ipc::ObjectDeadException&) { // Not Repeatable: it fails, and is not sent to the next process.
        fmt::print("crashed\n");
    }
    while (*co_await titles.receive() != wanted) { } // The next process begins with "nothing".
    fmt::print("loaded again\n");
}

int main() { return ipc::Application({ .modules = { "survive_relaunches" } }).run(run); }
