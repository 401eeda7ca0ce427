#pragma once
#include "core/services/app_info.h"
#include "foundation/time/clock.h"
#include "support/peer.h"
#include "support/worker.h"

namespace test {

using fn::Value;
using ipc::ObjectId;
using ipc::WorkerId;
namespace field = ipc::field;
namespace type = ipc::type;

inline ObjectId objectOf(WorkerId owner, std::uint64_t sequence) { return (sequence << 16) + owner; }

inline Value release(ObjectId id, std::int64_t count)
{
    return Value::map(
        { { field::TYPE, type::REFERENCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, count } });
}

/// A hub, workers, and strangers that speak the wire by hand, all on one loop whose clock the test drives.
class HubTest : public testing::Test {
protected:
    static constexpr auto timeout = fn::Duration::seconds(30);

    explicit HubTest(const ipc::HubLimits& limits = {})
        : dispatcher(std::make_unique<ipc::Dispatcher>(loop, timeout, limits))
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        dispatcher->onWorkerNotResponding()
            .connect([this](const auto& info) { silent.push_back(info.workerId); })
            .detach();
        dispatcher->onWorkerDisconnected()
            .connect([this](const auto& info) { gone.push_back(info.workerId); })
            .detach();
        dispatcher->bind();
        dispatcher->start();
        settle();
    }

    ~HubTest() override
    {
        dispatcher.reset();
        ownedLoop.reset();
        EXPECT_EQ(Service::alive, 0) << "an object has outlived its loop";
    }

    std::unique_ptr<Peer> stranger()
    {
        auto peer = std::make_unique<Peer>(loop, dispatcher->pipePath());
        settle();
        return peer;
    }

    std::unique_ptr<Peer> join(const char* name = "Peer", const char* tag = "")
    {
        auto peer = stranger();
        peer->hello(name, tag);
        settle();
        EXPECT_NE(peer->id(), ipc::NO_WORKER_ID);
        peer->clear();
        return peer;
    }

    std::unique_ptr<Client> client(const char* name, bool hasOwnProcess = false)
    {
        auto client = std::make_unique<Client>(loop, dispatcher->pipePath(), name, hasOwnProcess);
        client->worker->registerObjectReferenceClass<ServiceReference>();
        settle();
        EXPECT_TRUE(client->isConnected());
        return client;
    }

    /// A new service that others can look up.
    fn::AutoPtr<Service> offer(const Client& client, int priority = 0)
    {
        auto service = fn::makeAuto<Service>(*client.worker);
        outcome([&] { return client.worker->registry()->registerObject(service, priority); });
        return service;
    }

    /// Lets all that is on its way arrive, and what follows from it.
    void settle() { test::settle(loop); }

    void pass(fn::Duration time)
    {
        clock.advance(time);
        settle();
    }

    /// What has become of the promise that `call` gives, once all is at rest.
    template <typename Call> Outcome outcome(Call call)
    {
        Outcome outcome;
        loop.post([&] { outcome.observe(call()); });
        settle();
        return outcome;
    }

    fn::ManualClock clock;
    std::unique_ptr<fn::uv::Loop> ownedLoop = std::make_unique<fn::uv::Loop>(clock);
    fn::uv::Loop& loop = *ownedLoop;
    std::unique_ptr<ipc::Dispatcher> dispatcher;
    std::vector<WorkerId> silent;
    std::vector<WorkerId> gone;
};

} // namespace test
