// A service that survives its clients: what it keeps for one of them goes when that one goes, in whatever way.
//
// This file is compiled twice: as the module survive_clients, which is the client here, and as the program, which has the service.
#include "core/application/application.h"
#include "core/ipc/interface/remote.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/run_module.h"
#include "foundation/coroutine/channel.h"
#include <csignal>
#include <fmt/format.h>

struct Session : ipc::Interface<Session> {
    ipc::Method<void(fn::String line)> write;
    IPC_MEMBERS(write)
};
struct Desk : ipc::Interface<Desk> {
    ipc::Method<ipc::Ref<Session>(fn::String client)> open;
    ipc::Property<int> sessions { 0 };
    IPC_MEMBERS(open, sessions)
};

class DeskService final : public ipc::Service<DeskService, Desk> {
public:
    using Service::Service;
    fn::AutoPtr<class SessionService> open(const fn::String& client);
    void count(int change) { shared.sessions = *shared.sessions + change; }
};

class SessionService final : public ipc::Service<SessionService, Session> { // One for each client that has opened one.
public:
    SessionService(fn::AutoPtr<DeskService> desk, fn::String client)
        : Service(desk->worker()),
          _desk(std::move(desk)),
          _client(std::move(client))
    {
        _desk->count(1);
    }
    ~SessionService() override { _desk->count(-1); } // The client has let go of it, or has died: the same here.
    void write(const fn::String& line) { fmt::print("{}: {}\n", _client, line); }

private:
    const fn::AutoPtr<DeskService> _desk; // The desk outlives its sessions.
    const fn::String _client;
};

fn::AutoPtr<SessionService> DeskService::open(const fn::String& client)
{
    return fn::makeAuto<SessionService>(fn::AutoPtr(this), client);
}

class Client final : public ipc::Module {
public:
    using Module::Module;
    void onConnected() override { scope().start(work()); }

private:
    fn::Promise<void> work()
    {
        const auto session = co_await _desk->open("client");
        co_await session->write("I have a session, and crash");
        std::raise(SIGKILL);
    }
    ipc::Remote<Desk> _desk { worker() };
};
IPC_MODULE_ENTRY_POINT(Client, "Client")

fn::Promise<void> run(ipc::Application& app)
{
    const auto desk = fn::makeAuto<DeskService>(app.worker());
    app.worker().registry()->registerObject(desk, 0).ignore();
    fn::Channel<int> told(8);
    const auto watching = ipc::Ref<Desk>(desk)->sessions.watch([&](int count) { told.send(count).ignore(); });
    for (int i = 0; i < 5; ++i) fmt::print("sessions: {}\n", *co_await told.receive());
}
int main() { return ipc::Application({ .modules = { "survive_clients" } }).run(run); }
