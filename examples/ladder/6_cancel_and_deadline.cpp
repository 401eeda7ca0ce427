// Rung 6: cancel and deadline. Who waits no longer says so, or sets a limit; the service's coroutine ends where it waits.
//
// This file is compiled twice: as the module 6_cancel_and_deadline, which gets a process of its own, and as the program.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <fmt/format.h>

using namespace std::chrono_literals;

struct Oracle : ipc::Interface<Oracle> {
    ipc::Method<fn::String(fn::String question)> ask;
    ipc::Event<fn::String> givenUp; // The question.
    IPC_MEMBERS(ask, givenUp)
};

// --- The module

class OracleService final : public ipc::Service<OracleService, Oracle> {
public:
    using Service::Service;
    fn::Promise<fn::String> ask(fn::String question)
    {
        const GivingUp givingUp { shared, question };
        const auto inspiration = fn::Promise<void>::create(); // Nobody ever fulfils it.
        co_await inspiration; // Cancelled, the coroutine is destroyed here: no exception, destructors run.
        co_return "42";
    }

private:
    struct GivingUp {
        Oracle& shared;
        const fn::String& question;
        ~GivingUp() { shared.givenUp(question); }
    };
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<OracleService>, "Oracle")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    const auto oracle = co_await app.find<Oracle>();
    try {
        co_await oracle->ask.within(100ms)("Why?");
    } catch (const fn::OperationTimedOutException& timedOut) {
        fmt::print("{}\n", timedOut.message());
    }
    fmt::print("the oracle gives up: {}\n", co_await oracle->givenUp.next());

    oracle->ask("When?").cancel();
    fmt::print("the oracle gives up: {}\n", co_await oracle->givenUp.next());
}

int main() { return ipc::Application({ .modules = { "6_cancel_and_deadline" } }).run(run); }
