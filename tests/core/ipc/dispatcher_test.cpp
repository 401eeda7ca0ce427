// The hub as strangers see it. What can break here: a large death that holds others up, an end that leaves somebody waiting.
#include "core/ipc/dispatcher/hub_inspection.h"
#include "hub_fixture.h"

namespace {

using namespace test;

class DispatcherTest : public HubTest {
protected:
    static constexpr std::uint64_t many = 10'000; ///< More objects than the hub drops at once.

    /// A message that brings all of them, which are `owner`'s, to `receiver`.
    static Value listing(const Peer& owner, const Peer& receiver)
    {
        Value objects(Value::MAP);
        for (std::uint64_t i = 0; i < many; ++i) objects.set(objectOf(owner.id(), i), "X");
        auto message = objectMessage(owner.id(), receiver.id(), {});
        message.set(field::OBJECTS, std::move(objects));
        return message;
    }

    bool runUntil(folly::Function<bool()> condition) { return test::runUntil(loop, std::move(condition)); }
};

} // namespace

TEST_F(DispatcherTest, ALargeDeathLetsOthersInBetweenAndIsToldBehindItsReleases)
{
    const auto owner = join();
    const auto other = join();
    const auto holder = join();
    const auto heir = join();
    owner->send(listing(*owner, *holder));
    other->send(listing(*other, *holder));
    settle();
    const auto before = ipc::HubInspection(*dispatcher).objectCount();
    holder->close();
    ASSERT_TRUE(runUntil([&] { return ipc::HubInspection(*dispatcher).objectCount() < before; }));

    // Before all of it has been dropped its objects are sent again, and one of their owners dies.
    owner->send(listing(*owner, *heir));
    ASSERT_TRUE(runUntil([&] { return heir->count(type::MESSAGE) == 1; }));
    EXPECT_TRUE(gone.empty()) << "nobody else was let in";
    other->close();
    ASSERT_TRUE(runUntil([&] { return gone.size() == 2; }));
    settle();
    EXPECT_EQ(gone, (std::vector { holder->id(), other->id() }));
    const auto releases = owner->count(type::INSTANCE_RELEASE);
    EXPECT_EQ(owner->messages()[releases].at(field::TYPE), Value(type::WORKER_DEAD));
    for (std::uint64_t i = 0; i < many; ++i) heir->send(release(objectOf(owner->id(), i), 1));
    settle();
    EXPECT_EQ(owner->count(type::INSTANCE_RELEASE) - releases, many) << "those of the heir alone";
    EXPECT_EQ(ipc::HubInspection(*dispatcher).objectCount(), before - 2 * many);
}

TEST_F(DispatcherTest, StopTellsEverybodyAlsoWithoutADelayAndEndsTheCallsOfItsOwnWorker)
{
    const auto named = join();
    const auto unnamed = stranger();
    std::vector<std::string> told;
    loop.post([&] {
        const auto call = dispatcher->worker().registry()->callMethod("never answered", {});
        call.then([](Value&&) {}, [&](std::exception_ptr) { told.emplace_back("call rejected"); });
        dispatcher->stop(fn::Duration(), [&] { told.emplace_back("callback"); });
    });
    loop.run();
    EXPECT_EQ(told, (std::vector<std::string> { "call rejected", "callback" }));
    const auto late = stranger();
    late->hello();
    settle();
    for (const auto* peer : { named.get(), unnamed.get(), late.get() }) EXPECT_EQ(peer->count(type::QUIT), 1u);
}
