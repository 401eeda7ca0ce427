#pragma once
#include "core/app_info.h"
#include "core/ipc/dispatcher/dispatcher.h"
#include "foundation/time/clock.h"
#include "support/peer.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <memory>

namespace test {

using fn::Value;
using ipc::ObjectId;
using ipc::WorkerId;
namespace field = ipc::field;
namespace type = ipc::type;

/// A hub whose clock the test drives, and strangers that speak the wire by hand.
class DispatcherTest : public testing::Test {
protected:
    static constexpr auto timeout = fn::Duration::seconds(30);

    void SetUp() override
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        dispatcher.onWorkerConnected()
            .connect([this](const auto& info) { connected.push_back(info.toString()); })
            .detach();
        dispatcher.onWorkerNotResponding()
            .connect([this](const auto& info) { silent.push_back(info.workerId); })
            .detach();
        dispatcher.onWorkerDisconnected().connect([this](const auto& info) { gone.push_back(info.workerId); }).detach();
        bool ready = false;
        dispatcher.onReady().connect([&] { ready = true; }).detach();
        dispatcher.bind();
        dispatcher.start();
        ASSERT_TRUE(runUntil(loop, [&] { return ready; }));
    }

    std::unique_ptr<Peer> join(const char* name = "Peer", const char* tag = "")
    {
        auto peer = std::make_unique<Peer>(loop, dispatcher.pipePath());
        peer->hello(name, tag);
        EXPECT_TRUE(runUntil(loop, [&] { return peer->id() != ipc::NO_WORKER_ID; }));
        peer->clear();
        return peer;
    }

    std::unique_ptr<Peer> stranger()
    {
        auto peer = std::make_unique<Peer>(loop, dispatcher.pipePath());
        EXPECT_TRUE(runUntil(loop, [&] { return peer->isConnected(); }));
        return peer;
    }

    /// A message that brings `many` objects of `owner` to `receiver`: more than the hub drops at once.
    static Value listing(const Peer& owner, const Peer& receiver)
    {
        Value objects(Value::MAP);
        for (std::uint64_t i = 0; i < many; ++i) objects.set((i << 16) + owner.id(), "X");
        auto message = objectMessage(owner.id(), receiver.id(), {});
        message.set(field::OBJECTS, std::move(objects));
        return message;
    }
    static constexpr std::uint64_t many = 10'000;

    /// All that has been sent so far has been handled: the hub answers this peer's registry call behind it.
    void settle() { runTurns(loop, 40); }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    ipc::Dispatcher dispatcher { loop, timeout };
    std::vector<fn::String> connected;
    std::vector<WorkerId> silent;
    std::vector<WorkerId> gone;
};

inline ObjectId objectOf(WorkerId owner, std::uint64_t sequence) { return (sequence << 16) + owner; }

inline Value release(ObjectId id, std::int64_t count)
{
    return Value::map(
        { { field::TYPE, type::REFERENCE_RELEASE }, { field::OBJECT_ID, id }, { field::USAGE_COUNT, count } });
}

} // namespace test
