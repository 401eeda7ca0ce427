// The hub as strangers see it. What can break here: an id given twice, a message that reaches the wrong worker, a large death
// that holds others up, an end that leaves somebody waiting.
#include "core/ipc/dispatcher/instance_release.h"
#include "core/ipc/limits.h"
#include "hub_fixture.h"
#include <algorithm>
#include <map>

namespace {

using namespace test;

class DispatcherTest : public HubTest {
protected:
    static constexpr std::uint64_t many = 10'000; ///< More objects than the hub drops at once.

    /// A message that brings objects of `owner`, numbered from `first` on, to `receiver`.
    static Value listing(const Peer& owner, const Peer& receiver, std::uint64_t first = 0, std::uint64_t count = many)
    {
        Value objects(Value::MAP);
        for (auto i = first; i < first + count; ++i) objects.set(objectOf(owner.id(), i), "X");
        auto message = objectMessage(owner.id(), receiver.id(), {});
        message.set(field::OBJECTS, std::move(objects));
        return message;
    }

    bool runUntil(folly::Function<bool()> condition) { return test::runUntil(loop, std::move(condition)); }
};

} // namespace

TEST_F(DispatcherTest, GivesIdsInHelloOrderAndIgnoresASecondHello)
{
    const auto first = join("Media", "t1");
    const auto late = stranger();
    const auto second = join("Other");
    late->hello("Late");
    first->hello("Again");
    settle();
    EXPECT_EQ((std::vector { first->id(), second->id(), late->id() }), (std::vector<WorkerId> { 1, 2, 3 }));
    EXPECT_TRUE(first->messages().empty());
    EXPECT_EQ(
        connected, (std::vector<fn::String> { "DispatcherWorker (0)", "Media (t1, 1)", "Other (2)", "Late (3)" }));
}

TEST_F(DispatcherTest, RoutesToATargetToHoldersAndFromTheRegistryToEverybody)
{
    const auto a = join();
    const auto b = join();
    const auto c = join();
    const auto unnamed = stranger();
    const auto x = objectOf(a->id(), 1);
    auto expected = objectMessage(x, b->id(), "hi", { { x, "X" } });
    a->send(expected);
    settle();
    expected.set(field::SOURCE_WORKER_ID, a->id());
    ASSERT_EQ(b->count(type::MESSAGE), 1u);
    EXPECT_EQ(*b->last(type::MESSAGE), expected) << "only the source is added";
    a->send(objectMessage(x, ipc::NO_WORKER_ID, "event"));
    a->send(objectMessage(x, 999, "to nobody"));
    settle();
    EXPECT_EQ(b->count(type::MESSAGE), 2u);
    c->send(objectMessage(ipc::REGISTRY_OBJECT_ID, ipc::NO_WORKER_ID, "all"));
    settle();
    EXPECT_EQ(unnamed->count(type::MESSAGE), 1u);
    EXPECT_EQ(a->count(type::MESSAGE), 1u);
    EXPECT_EQ(b->count(type::MESSAGE), 3u);
    EXPECT_EQ(c->count(type::MESSAGE), 1u) << "the sender, too; but not the object's event: it holds no reference";
}

TEST_F(DispatcherTest, ALargeDeathLetsOthersInBetweenAndIsToldBehindItsReleases)
{
    const auto owner = join();
    const auto other = join();
    const auto holder = join();
    const auto heir = join();
    owner->send(listing(*owner, *holder));
    other->send(listing(*other, *holder));
    settle();
    const auto before = dispatcher->usageCounts().objectCount();
    holder->close();
    ASSERT_TRUE(runUntil([&] { return dispatcher->usageCounts().objectCount() < before; }));

    // Before all of it has been dropped its objects are sent again, and one of their owners dies.
    owner->send(listing(*owner, *heir));
    ASSERT_TRUE(runUntil([&] { return heir->count(type::MESSAGE) == 1; }));
    EXPECT_TRUE(gone.empty()) << "nobody else was let in";
    other->close();
    ASSERT_TRUE(runUntil([&] { return gone.size() == 2; }));
    settle();
    EXPECT_EQ(gone, (std::vector { holder->id(), other->id() }));
    const auto releasesBefore = owner->count(type::INSTANCE_RELEASE);
    ASSERT_EQ(owner->messages()[releasesBefore].at(field::TYPE), Value(type::WORKER_DEAD));
    for (std::uint64_t i = 0; i < many; ++i) heir->send(release(objectOf(owner->id(), i), 1));
    settle();
    std::map<ObjectId, int> uses;
    for (const auto& message : owner->messages()) {
        if (message.at(field::TYPE) == Value(type::INSTANCE_RELEASE))
            uses[message.at(field::OBJECT_ID).to<ObjectId>()] += message.at(field::USAGE_COUNT).to<int>();
    }
    EXPECT_EQ(uses.size(), many);
    EXPECT_TRUE(std::ranges::all_of(uses, [](const auto& entry) { return entry.second == 2; })) << "sent twice each";
    EXPECT_EQ(owner->count(type::INSTANCE_RELEASE) - releasesBefore, many) << "those of the heir alone";
    EXPECT_EQ(dispatcher->usageCounts().objectCount(), before - 2 * many);
}

TEST_F(DispatcherTest, NobodyHoldsUpADeathByMentioningItsObjects)
{
    // The nameless share an id: what one of them lists is counted while another one dies.
    const auto dying = stranger();
    const auto hostile = stranger();
    const auto witness = join();
    dying->send(listing(*dying, *witness));
    settle();
    dying->close();
    auto mentioned = many;
    ASSERT_TRUE(runUntil([&] {
        hostile->send(listing(*dying, *witness, mentioned, 2000)); // More in each turn than are dropped in one.
        mentioned += 2000;
        return witness->last(type::WORKER_DEAD) != nullptr;
    }));
    EXPECT_EQ(gone, std::vector { dying->id() });
    EXPECT_LT(mentioned, 10 * many);
}

TEST_F(DispatcherTest, MayGoWhileADeathIsNotOver)
{
    const auto owner = join();
    const auto holder = join();
    const auto owned = [&] { return dispatcher->usageCounts().ownedCount(owner->id()); };
    owner->send(listing(*owner, *holder));
    settle();
    holder->close();
    ASSERT_TRUE(runUntil([&] { return owned() < many; }));
    EXPECT_GT(owned(), 0u);
    dispatcher.reset();
    settle();
    EXPECT_TRUE(owner->isEnded());
    EXPECT_EQ(owner->count(type::WORKER_DEAD), 0u);
}

TEST_F(DispatcherTest, WhoWasToldThatAnIdIsDeadHearsThatItIsUsedAgain)
{
    const auto carrier = join();
    const auto receiver = join();
    const auto young = stranger();
    const auto madeUp = static_cast<WorkerId>(receiver->id() + 1);
    const auto counted = dispatcher->usageCounts().objectCount();
    carrier->send(objectMessage(0, receiver->id(), {}, { { 0, "Registry" }, { objectOf(madeUp, 1), "X" } }));
    settle();
    EXPECT_EQ(
        receiver->messages()[0], Value::map({ { field::TYPE, type::WORKER_DEAD }, { field::WORKER_ID, madeUp } }));
    EXPECT_EQ(receiver->count(type::MESSAGE), 1u);
    EXPECT_EQ(dispatcher->usageCounts().objectCount(), counted) << "what belongs to nobody is not counted";
    const auto late = join();
    ASSERT_EQ(late->id(), madeUp);
    EXPECT_EQ(receiver->messages().back(),
        Value::map({ { field::TYPE, type::WORKER_ID_REUSED }, { field::WORKER_ID, madeUp } }));
    EXPECT_TRUE(young->messages().empty()) << "it was told nothing of it";
}

TEST_F(DispatcherTest, StopTellsEverybodyAlsoWithoutADelayAndEndsTheCallsOfItsOwnWorker)
{
    const auto named = join();
    const auto unnamed = stranger();
    std::vector<std::string> told;
    loop.post([&] {
        dispatcher->worker()
            .registry()
            ->callMethod("never answered", {})
            .then([](Value&&) {},
                [&](std::exception_ptr) {
                    told.emplace_back("call rejected");
                    loop.post([&] { told.emplace_back("task"); });
                });
        dispatcher->stop(fn::Duration(), [&] { told.emplace_back("callback"); });
    });
    loop.run();
    EXPECT_EQ(told, (std::vector<std::string> { "call rejected", "task", "callback" }));
    const auto late = stranger();
    late->hello();
    settle();
    for (const auto* peer : { named.get(), unnamed.get(), late.get() }) EXPECT_EQ(peer->count(type::QUIT), 1u);
}

TEST(InstanceRelease, IsWhatTheGeneralEncoderWrites)
{
    for (const ObjectId objectId : { 0ull, 127ull, 128ull, 255ull, 256ull, 65'535ull, 65'536ull, 0xFFFF'FFFFull,
             0x1'0000'0000ull, 0x7FFF'FFFF'FFFF'FFFFull, 0xFFFF'FFFF'FFFF'FFFFull }) {
        for (const std::uint32_t count : { 1u, 127u, 128u, 256u, 65'536u, ipc::limits::uses }) {
            const auto message = Value::map({ { field::TYPE, type::INSTANCE_RELEASE }, { field::OBJECT_ID, objectId },
                { field::USAGE_COUNT, count } });
            const auto frame = ipc::encodeInstanceRelease(objectId, count);
            ASSERT_EQ(frame.count(), 1u);
            EXPECT_EQ(frame.parts().front(), ipc::MessageHelper::encode(message).parts().front());
        }
    }
}
