// Rung 7: many calls at a time, but no more than four.
//
// This file is compiled twice: as the module 7_four_in_flight, which gets a process of its own, and as the program.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "foundation/coroutine/join.h"
#include "foundation/coroutine/semaphore.h"
#include <fmt/format.h>

struct Ferry : ipc::Interface<Ferry> {
    ipc::Method<int(int passenger)> cross; // Gives the number of the trip. The ferry leaves when four are on board.
    IPC_MEMBERS(cross)
};

// --- The module

class FerryService final : public ipc::Service<FerryService, Ferry> {
public:
    using Service::Service;
    fn::Promise<int> cross(int)
    {
        const auto answer = fn::Promise<int>::create(); // A promise that is answered later: here several calls at once.
        _onBoard.push_back(answer);
        if (_onBoard.size() == 4) {
            ++_trips;
            for (const auto& each : std::exchange(_onBoard, {})) each.fulfill(_trips);
        }
        return answer;
    }

private:
    std::vector<fn::Promise<int>> _onBoard;
    int _trips = 0;
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<FerryService>, "Ferry")

// --- The program

fn::Promise<int> cross(ipc::Ref<Ferry> ferry, fn::Semaphore& four, int passenger)
{
    const auto permit = co_await four.acquire(); // Given back at the coroutine's end: then the next one is called.
    co_return co_await ferry->cross(passenger);
}

fn::Promise<void> run(ipc::Application& app)
{
    const auto ferry = co_await app.find<Ferry>();
    fn::Semaphore four(4);
    std::vector<fn::Promise<int>> crossings;
    crossings.reserve(12);
    for (int passenger = 0; passenger < 12; ++passenger) crossings.push_back(cross(ferry, four, passenger));
    const auto trips =
        co_await fn::all(std::move(crossings)); // In their order. The first failure would cancel the others.
    fmt::print("{}\n", fmt::join(trips, " "));
}

int main() { return ipc::Application({ .modules = { "7_four_in_flight" } }).run(run); }
