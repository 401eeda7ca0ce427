// Big data: in pieces, a few of them under way, to an object that the receiver lends.
//
// This file is compiled twice: as the module big_data, which gets a process of its own, and as the program that starts it.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "foundation/coroutine/scope.h"
#include "foundation/coroutine/semaphore.h"
#include <fmt/format.h>

struct Sink : ipc::Interface<Sink> { // The receiver's.
    ipc::Method<void(int number, fn::ByteArray piece)> take;
    IPC_MEMBERS(take)
};
struct Source : ipc::Interface<Source> {
    ipc::Method<void(int pieces, ipc::Ref<Sink>)> send; // Its answer: all is there.
    IPC_MEMBERS(send)
};

// --- The module

class SourceService final : public ipc::Service<SourceService, Source> {
public:
    using Service::Service;
    fn::Promise<void> send(int pieces, ipc::Ref<Sink> sink)
    {
        fn::Semaphore four(4);
        fn::Scope sending; // If the caller gives up, or dies, what is under way ends here.
        for (int number = 0; number < pieces; ++number) {
            auto permit = co_await four.acquire(); // A slow receiver answers late, and gets no more meanwhile.
            sending.start(piece(number, sink, std::move(permit)));
        }
        co_await sending.finished();
    }

private:
    static fn::Promise<void> piece(int number, ipc::Ref<Sink> sink, fn::Semaphore::Permit)
    {
        const fn::ByteArray bytes(1 << 20); // 1 MiB, as read from a file.
        co_await sink->take(number, bytes);
    }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<SourceService>, "Source")

// --- The program

struct SinkService final : ipc::Service<SinkService, Sink> {
    using Service::Service;
    void take(int number, const fn::ByteArray& piece) { inOrder += number == pieces++, bytes += piece.size(); }
    int pieces = 0, inOrder = 0;
    std::size_t bytes = 0;
};

fn::Promise<void> run(ipc::Application& app)
{
    const auto source = co_await app.find<Source>();
    const auto sink = fn::makeAuto<SinkService>(app.worker());
    co_await source->send(100, sink);
    fmt::print("{} pieces, {} of them in order, {} MiB\n", sink->pieces, sink->inOrder, sink->bytes >> 20);
}

int main() { return ipc::Application({ .modules = { "big_data" } }).run(run); }
