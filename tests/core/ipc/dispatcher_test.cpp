// The hub as strangers see it. What can break here: an id given twice, a message that reaches the wrong worker or none, a
// count that keeps an object for ever, a death not told.
#include "core/ipc/dispatcher/instance_release.h"
#include "core/ipc/limits.h"
#include "core/ipc/registry.h"
#include "dispatcher_fixture.h"
#include <algorithm>
#include <map>

using namespace test;

TEST_F(DispatcherTest, GivesIdsInHelloOrderAndIgnoresASecondHello)
{
    ASSERT_EQ(connected, std::vector<fn::String> { "DispatcherWorker (0)" });
    const auto first = join("Media", "t1");
    const auto late = stranger();
    const auto second = join("Other");
    late->hello("Late");
    ASSERT_TRUE(test::runUntil(loop, [&] { return late->id() != ipc::NO_WORKER_ID; }));
    EXPECT_EQ(first->id(), 1);
    EXPECT_EQ(second->id(), 2);
    EXPECT_EQ(late->id(), 3);
    first->hello("Again");
    settle();
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

    a->send(test::objectMessage(x, b->id(), "hi", { { x, "X" } }));
    ASSERT_TRUE(test::runUntil(loop, [&] { return b->count(type::MESSAGE) == 1; }));
    auto expected = test::objectMessage(x, b->id(), "hi", { { x, "X" } });
    expected.set(field::SOURCE_WORKER_ID, a->id());
    EXPECT_EQ(*b->last(type::MESSAGE), expected) << "only the source is added";

    a->send(test::objectMessage(x, ipc::NO_WORKER_ID, "event"));
    ASSERT_TRUE(test::runUntil(loop, [&] { return b->count(type::MESSAGE) == 2; }));
    c->send(test::objectMessage(ipc::REGISTRY_OBJECT_ID, ipc::NO_WORKER_ID, "all"));
    ASSERT_TRUE(test::runUntil(loop, [&] { return unnamed->count(type::MESSAGE) == 1; }));
    settle();
    EXPECT_EQ(a->count(type::MESSAGE), 1u);
    EXPECT_EQ(b->count(type::MESSAGE), 3u);
    EXPECT_EQ(c->count(type::MESSAGE), 1u) << "the sender, too; but not the object's event: it holds no reference";
    EXPECT_EQ(a->count(type::INSTANCE_RELEASE), 0u);
}

TEST_F(DispatcherTest, TellsTheOwnerWhenNobodyHoldsItsObject)
{
    const auto owner = join();
    const auto holder = join();
    const auto x = objectOf(owner->id(), 7);
    const auto released = [&](std::size_t times) {
        return test::runUntil(loop, [&] { return owner->count(type::INSTANCE_RELEASE) == times; });
    };
    const auto count = [&] { return owner->last(type::INSTANCE_RELEASE)->at(field::USAGE_COUNT); };

    owner->send(test::objectMessage(x, 999, {}, { { x, "X" } }));
    ASSERT_TRUE(released(1)) << "sent to somebody who is not there";
    owner->send(test::objectMessage(x, ipc::NO_WORKER_ID, {}, { { x, "X" } }));
    ASSERT_TRUE(released(2)) << "sent to holders, of whom there is none";
    EXPECT_EQ(count(), Value(1));

    for (int i = 0; i < 2; ++i) owner->send(test::objectMessage(x, holder->id(), i, { { x, "X" } }));
    holder->send(release(x, 1));
    settle();
    EXPECT_EQ(owner->count(type::INSTANCE_RELEASE), 2u) << "one count is left";
    holder->send(release(x, 1));
    ASSERT_TRUE(released(3));
    EXPECT_EQ(owner->last(type::INSTANCE_RELEASE)->at(field::OBJECT_ID), Value(x));
    EXPECT_EQ(count(), Value(2));

    owner->send(test::objectMessage(x, holder->id(), {}, { { x, "X" } }));
    holder->close();
    ASSERT_TRUE(released(4)) << "the only holder has died";
    EXPECT_EQ(owner->last(type::WORKER_DEAD)->at(field::WORKER_ID), Value(holder->id()));
    EXPECT_EQ(gone, std::vector { holder->id() });
}

TEST_F(DispatcherTest, ALargeDeathLetsOthersInBetweenAndIsToldBehindItsReleases)
{
    const auto owner = join();
    const auto other = join();
    const auto holder = join();
    const auto heir = join();
    owner->send(listing(*owner, *holder));
    other->send(listing(*other, *holder));
    ASSERT_TRUE(test::runUntil(loop, [&] { return holder->count(type::MESSAGE) == 2; }));
    const auto before = dispatcher.usageCounts().objectCount();
    holder->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return dispatcher.usageCounts().objectCount() < before; }));

    // Before all of it has been dropped its objects are sent again, and one of their owners dies.
    owner->send(listing(*owner, *heir));
    ASSERT_TRUE(test::runUntil(loop, [&] { return heir->count(type::MESSAGE) == 1; }));
    EXPECT_TRUE(gone.empty()) << "nobody else was let in";
    other->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return heir->count(type::WORKER_DEAD) == 2; }));
    EXPECT_EQ(gone, (std::vector { holder->id(), other->id() }));
    for (std::uint64_t i = 0; i < many; ++i) heir->send(release(objectOf(owner->id(), i), 1));
    ASSERT_TRUE(test::runUntil(
        loop, [&] { return owner->last(type::WORKER_DEAD) && dispatcher.usageCounts().ownedCount(owner->id()) == 0; }));
    settle();

    std::map<ObjectId, int> uses;
    std::size_t releasesBehindNotice = 0;
    bool isTold = false;
    for (const auto& message : owner->messages()) {
        if (message.at(field::TYPE) == Value(type::WORKER_DEAD)) isTold = true;
        if (message.at(field::TYPE) != Value(type::INSTANCE_RELEASE)) continue;
        uses[message.at(field::OBJECT_ID).to<ObjectId>()] += message.at(field::USAGE_COUNT).to<int>();
        releasesBehindNotice += isTold;
    }
    EXPECT_EQ(uses.size(), many);
    EXPECT_TRUE(std::ranges::all_of(uses, [](const auto& entry) { return entry.second == 2; })) << "sent twice each";
    EXPECT_EQ(releasesBehindNotice, many) << "those of the heir alone";
    EXPECT_EQ(dispatcher.usageCounts().objectCount(), before - 2 * many);
}

TEST_F(DispatcherTest, NobodyHoldsUpADeathByMentioningItsObjects)
{
    const auto dying =
        stranger(); // The nameless share an id: what one of them lists is counted while another one dies.
    const auto hostile = stranger();
    const auto witness = join();
    dying->send(listing(*dying, *witness));
    ASSERT_TRUE(test::runUntil(loop, [&] { return witness->count(type::MESSAGE) == 1; }));
    dying->close();
    std::uint64_t mentioned = many;
    const auto mention = [&] { // More in each turn than are dropped in one.
        Value objects(Value::MAP);
        for (int i = 0; i < 2000; ++i) objects.set(objectOf(dying->id(), mentioned++), "X");
        auto message = test::objectMessage(hostile->id(), witness->id(), {});
        message.set(field::OBJECTS, std::move(objects));
        hostile->send(message);
    };
    ASSERT_TRUE(test::runUntil(loop, [&] {
        mention();
        return witness->last(type::WORKER_DEAD) != nullptr;
    }));
    EXPECT_EQ(gone, std::vector { dying->id() });
    EXPECT_LT(mentioned, 10 * many);
}

TEST_F(DispatcherTest, ObjectsWithoutAnOwnerAreNotCountedAndAReceiverKnowsFirst)
{
    const auto owner = join();
    const auto carrier = join();
    const auto young = stranger();
    owner->send(listing(*owner, *carrier));
    ASSERT_TRUE(test::runUntil(loop, [&] { return carrier->count(type::MESSAGE) == 1; }));
    const auto before = dispatcher.usageCounts().objectCount() - many;
    const auto madeUp = static_cast<WorkerId>(carrier->id() + 2);
    const auto mention = [&](const test::Peer& receiver) {
        carrier->send(test::objectMessage(0, receiver.id(), {},
            { { 0, "Registry" }, { objectOf(owner->id(), 1), "X" }, { objectOf(madeUp, 1), "X" },
                { objectOf(owner->id(), many), "X" } }));
        settle();
    };
    const auto types = [](const test::Peer& peer) {
        std::vector<int> found;
        for (const auto& message : peer.messages()) found.push_back(message.at(field::TYPE).to<int>());
        return found;
    };
    owner->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return dispatcher.workers().size() == 2; }));
    mention(*carrier); // The notice of the death is not out yet.
    ASSERT_TRUE(test::runUntil(loop, [&] { return carrier->count(type::WORKER_DEAD) == 2 && !gone.empty(); }));
    EXPECT_EQ(carrier->count(type::MESSAGE), 2u);
    EXPECT_EQ(dispatcher.usageCounts().objectCount(), before);

    young->hello();
    settle();
    young->clear();
    const auto late = join();
    EXPECT_EQ(late->id(), madeUp);
    EXPECT_EQ(types(*carrier).back(), type::WORKER_ID_REUSED) << "what it was told of this id holds no more";
    EXPECT_TRUE(young->messages().empty()) << "it was told nothing of it";
    for (int i = 0; i < 2; ++i) {
        mention(*young);
        mention(*late);
    }
    EXPECT_EQ(types(*young), (std::vector { type::MESSAGE, type::MESSAGE })) << "older than the death";
    EXPECT_EQ(types(*late), (std::vector { type::WORKER_DEAD, type::MESSAGE, type::MESSAGE }));
    EXPECT_EQ(late->messages()[0].at(field::WORKER_ID), Value(owner->id()));
    EXPECT_EQ(dispatcher.usageCounts().ownedCount(owner->id()), 0u);
    EXPECT_EQ(dispatcher.usageCounts().objectCount(), before + 1) << "only the object of who is there now";
}

TEST_F(DispatcherTest, MayGoWhileADeathIsNotOver)
{
    auto hub = std::make_unique<ipc::Dispatcher>(loop, timeout);
    bool ready = false;
    hub->onReady().connect([&] { ready = true; }).detach();
    hub->bind();
    hub->start();
    ASSERT_TRUE(test::runUntil(loop, [&] { return ready; }));
    test::Peer owner(loop, hub->pipePath());
    test::Peer holder(loop, hub->pipePath());
    for (auto* peer : { &owner, &holder }) {
        peer->hello();
        ASSERT_TRUE(test::runUntil(loop, [&] { return peer->id() != ipc::NO_WORKER_ID; }));
    }
    owner.send(listing(owner, holder));
    ASSERT_TRUE(test::runUntil(loop, [&] { return holder.count(type::MESSAGE) == 1; }));
    holder.close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return hub->usageCounts().ownedCount(owner.id()) < many; }));
    EXPECT_GT(hub->usageCounts().ownedCount(owner.id()), 0u);
    hub.reset();
    ASSERT_TRUE(test::runUntil(loop, [&] { return owner.isEnded(); }));
    EXPECT_EQ(owner.count(type::WORKER_DEAD), 0u);
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

TEST_F(DispatcherTest, TellsEverybodyOfADeathAndForgetsTheDead)
{
    const auto a = join();
    const auto b = join();
    const auto unnamed = stranger();
    const auto x = objectOf(b->id(), 1);
    b->send(test::objectMessage(x, a->id(), {}, { { x, "X" } }));
    ASSERT_TRUE(test::runUntil(loop, [&] { return a->count(type::MESSAGE) == 1; }));
    b->close();
    ASSERT_TRUE(test::runUntil(
        loop, [&] { return a->count(type::WORKER_DEAD) == 1 && unnamed->count(type::WORKER_DEAD) == 1; }));
    a->send(release(x, 1)); // The owner has gone, and its counts with it: nobody complains.
    unnamed->close();
    ASSERT_TRUE(test::runUntil(loop, [&] { return a->count(type::WORKER_DEAD) == 2; }));
    EXPECT_EQ(a->last(type::WORKER_DEAD)->at(field::WORKER_ID), Value(0xFFFF));
    EXPECT_EQ(gone, (std::vector<WorkerId> { 2, 0xFFFF }));
    EXPECT_FALSE(a->isEnded());
}

TEST_F(DispatcherTest, StopTellsEverybodyAlsoWithoutADelayAndEndsTheCallsOfItsOwnWorker)
{
    const auto named = join();
    const auto unnamed = stranger();
    std::vector<std::string> told;
    loop.post([&] {
        dispatcher.worker()
            .registry()
            ->callMethod("never answered", {})
            .then([](Value&&) {},
                [&](std::exception_ptr) {
                    told.emplace_back("call rejected");
                    loop.post([&] { told.emplace_back("task"); });
                });
        dispatcher.stop(fn::Duration(), [&] { told.emplace_back("callback"); });
    });
    loop.run();
    EXPECT_EQ(told, (std::vector<std::string> { "call rejected", "task", "callback" }));
    EXPECT_TRUE(test::runUntil(loop, [&] { return named->count(type::QUIT) == 1 && unnamed->count(type::QUIT) == 1; }));
    const auto late = stranger();
    late->hello();
    EXPECT_TRUE(test::runUntil(loop, [&] { return late->count(type::QUIT) == 1; }));
}
