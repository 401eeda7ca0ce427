// What can break here: work that goes on after its scope; a value or a permit that is lost, or given twice.
#include "foundation/coroutine/channel.h"
#include "foundation/coroutine/retry.h"
#include "foundation/coroutine/scope.h"
#include "foundation/coroutine/semaphore.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include <gmock/gmock.h>
#include <random>

namespace {

using fn::Duration;
using fn::Promise;
using fn::Scope;
using testing::ElementsAre;

/// What came of it.
template <typename T> Promise<std::string> told(Promise<T> promise)
{
    try {
        co_await std::move(promise);
    } catch (const std::exception& exception) {
        co_return exception.what();
    }
    co_return "no failure";
}

/// A loop whose time is driven.
class Coroutines : public testing::Test {
protected:
    void run(const std::function<void()>& step)
    {
        loop->post(step);
        test::runTurns(*loop);
    }
    void pass(Duration time)
    {
        clock.advance(time);
        test::runTurns(*loop);
    }

    fn::ManualClock clock;
    std::unique_ptr<fn::uv::Loop> loop = std::make_unique<fn::uv::Loop>(clock);
};

/// Says when it goes.
struct Goer {
    Goer(std::string name, std::string& said) : name(std::move(name)), said(said) { }
    Goer(const Goer&) = delete;
    ~Goer() { said += name; }
    const std::string name;
    std::string& said;
};

Promise<std::string> say(std::string text, int milliseconds, std::string& said)
{
    const Goer goer(text, said);
    co_await fn::sleep(Duration::milliseconds(milliseconds));
    if (text == "x") throw fn::RuntimeException("failed");
    co_return text;
}

using ScopeTest = Coroutines;

TEST_F(ScopeTest, RunsNothingAfterItsEndAndEndsTheNewestFirst)
{
    std::string said;
    fn::Signal<> signal;
    std::optional<Scope> scope(std::in_place);
    folly::Function<void()> guarded;
    run([&] {
        scope->start(say("a", 1000, said));
        scope->start([&said, name = std::string("c")]() -> Promise<void> { co_await say(name, 1000, said); });
        scope->connect(signal, [&] { said += "s"; });
        scope->hold(loop->schedule(Duration::seconds(1), [&] { said += "t"; }));
        guarded = scope->guard([&] { said += "g"; });
        signal.fire();
        guarded();
        EXPECT_EQ(std::exchange(said, {}), "sg");
        scope->end();
        guarded();
        EXPECT_EQ(std::exchange(said, {}), "ca");
        scope->start([&] { return say("late", 0, said); });
        scope->start(say("d", 1000, said));
        scope->connect(signal, [&] { said += "s"; });
        EXPECT_EQ(std::exchange(said, {}), "d");
        scope.reset();
        signal.fire();
    });
    pass(Duration::seconds(2));
    EXPECT_EQ(said, "");
}

TEST_F(ScopeTest, RefusesToEndInsideOneOfItsOwnCoroutines)
{
    const test::ExpectAssertions assertions;
    std::string said;
    auto scope = std::make_unique<Scope>();
    const auto child = [&]() -> Promise<int> {
        EXPECT_THROW(scope->end(), fn::RuntimeException) << "before its first await";
        co_await fn::sleep(Duration::seconds(1));
        EXPECT_THROW(scope->cancel(), fn::RuntimeException) << "inside what one of them awaits";
        co_return 1;
    };
    run([&] {
        scope->start([&]() -> Promise<void> {
            const Goer goer("a", said);
            co_await fn::all(child(), Promise<int>::fulfilled(1));
            scope.reset();
            EXPECT_EQ(said, "b") << "the others have gone";
            co_await Promise<int>::fulfilled(1);
            ADD_FAILURE() << "it goes on without its scope";
        });
        scope->start(say("b", 9'000, said));
    });
    pass(Duration::seconds(1));
    EXPECT_EQ(said, "ba");
    EXPECT_THAT(
        assertions.reports(), ElementsAre(testing::HasSubstr("A scope can not end inside one of its own coroutines")));
}

Promise<void> failLater(Promise<void> start)
{
    co_await std::move(start);
    throw fn::RuntimeException("later");
}

TEST_F(ScopeTest, TellsOfFailuresOnceItHasFinishedAndLogsThoseThatNobodyWaitsFor)
{
    const test::LogCapture log { fn::logging::Warning };
    std::string heard;
    Scope scope;
    run([&] {
        const auto hear = [&](std::string text) { heard += text + " "; };
        const auto start = Promise<void>::create(), other = Promise<void>::create();
        scope.start(failLater(start));
        scope.start(other);
        told(scope.finished()).then(hear);
        start.fulfill();
        EXPECT_EQ(heard, "");
        other.fulfill();
        scope.start(failLater(Promise<void>::fulfilled())); // Nobody waits.
        told(scope.finished()).then(hear);
        told(scope.finished()).then(hear);
        []() -> Promise<void> { co_await Promise<void>::rejected(std::make_exception_ptr("ignored")); }().ignore();
        scope.start([]() -> Promise<void> { throw fn::RuntimeException("at once"); });
    });
    EXPECT_EQ(heard, "later later no failure ");
    const std::string start = "2 core.promise A promise failed and nobody looked: ";
    EXPECT_THAT(log.lines(),
        ElementsAre(testing::MatchesRegex(start + ".*failLater.* at scope_test.cpp:[0-9]+: RuntimeException: later"),
            testing::MatchesRegex(start + ".*scope_test.cpp:[0-9]+: .*at once")));
}

TEST_F(ScopeTest, GivesADeadlineThatIsInheritedAndOnlyMadeEarlier)
{
    std::vector<std::int64_t> left; // In milliseconds.
    const auto note = [&] {
        const auto remaining = fn::WorkContext::current().remainingTime();
        left.push_back(remaining ? remaining->totalMilliseconds() : -1);
    };
    const auto noteAfter = [&](int milliseconds) -> Promise<void> {
        co_await fn::sleep(Duration::milliseconds(milliseconds));
        note();
    };
    Scope scope;
    scope.setTimeLimit(Duration::milliseconds(9));
    run([&] {
        scope.start([&]() -> Promise<void> {
            const fn::ScopedContext earlier(fn::WorkContext::current().within(Duration::milliseconds(5)));
            const fn::ScopedContext later(fn::WorkContext::current().within(Duration::milliseconds(7)));
            co_await noteAfter(2);
            co_await noteAfter(4);
            loop->post(note); // What the loop runs is another's work.
            test::runTurns(*loop, 2);
        });
        note();
    });
    for (int i = 0; i < 3; ++i) pass(Duration::milliseconds(2));
    EXPECT_THAT(left, ElementsAre(-1, 3, 0, -1));
}

using Helpers = Coroutines;

TEST_F(Helpers, JoinAndBoundWhatGoesOnAndCancelTheRest)
{
    std::string said;
    Scope scope;
    run([&] {
        scope.start([&]() -> Promise<void> {
            auto both = co_await fn::all(say("a", 2, said), say("b", 1, said), Promise<void>::fulfilled());
            EXPECT_EQ(both, std::tuple("a", "b", std::monostate()));
            EXPECT_EQ(std::exchange(said, {}), "ba");
            EXPECT_EQ(std::get<0>(co_await fn::any(say("a", 2, said), fn::sleep(Duration::seconds(1)))), "a");
            std::vector<Promise<std::string>> several;
            for (const char* name : { "c", "d", "e" }) several.push_back(say(name, name[0] == 'd' ? 1 : 3, said));
            const auto [index, name] = co_await fn::any(several);
            EXPECT_EQ(index, 1u);
            EXPECT_EQ(std::exchange(said, {}), "adec") << "those that came second have gone when it goes on";

            EXPECT_EQ(co_await told(fn::all(say("f", 2, said), say("x", 1, said))), "failed");
            EXPECT_EQ(co_await told(fn::all(say("f", 9, said), Promise<int>::create())),
                "Who was to settle an awaited promise has forgotten or cancelled it");
            EXPECT_EQ(co_await told(fn::withTimeout(say("f", 9, said), Duration::milliseconds(2))),
                "Nothing came within 2 ms");
            EXPECT_EQ(std::exchange(said, {}), "xfff");
            EXPECT_EQ(co_await fn::withTimeout(say("f", 2, said), Duration::milliseconds(9)), "f");
            EXPECT_EQ(co_await told(fn::any(std::vector<Promise<int>>())), "There is no promise to wait for");
            co_await fn::all(std::vector<Promise<void>>());
            int tries = 0;
            const auto attempt = [&]() -> Promise<int> {
                if (++tries % 4 != 0) throw fn::RuntimeException("failed");
                co_return tries;
            };
            const auto begin = clock.monotonic();
            const fn::Backoff four(4, Duration::milliseconds(2), Duration::milliseconds(5));
            EXPECT_EQ(co_await fn::retry(four, attempt), 4);
            EXPECT_EQ(clock.monotonic() - begin, Duration::milliseconds(2 + 4 + 5));
            EXPECT_EQ(co_await told(fn::retry(fn::Backoff(3, Duration(), Duration()), attempt)), "failed");
            said = "done";
        });
    });
    for (int i = 0; i < 50; ++i) pass(Duration::milliseconds(1));
    EXPECT_EQ(said, "done");
}

TEST_F(Helpers, LetSoManyInAtATimeInOrderWhoeverGivesUp)
{
    for (unsigned seed = 0; seed < 50 && !HasFailure(); ++seed) {
        std::mt19937 random(seed);
        fn::Semaphore four(4);
        std::vector<int> entered;
        int inside = 0;
        const auto enter = [&](int number) -> Promise<void> {
            const auto permit = co_await four.acquire();
            entered.push_back(number);
            EXPECT_LE(++inside, 4);
            const auto leave = std::shared_ptr<void>(nullptr, [&](void*) { --inside; });
            co_await fn::sleep(Duration::milliseconds(1 + number % 3));
        };
        std::vector<Promise<void>> all;
        run([&] {
            for (int i = 0; i < 20; ++i) all.push_back(enter(i));
        });
        for (int i = 0; i < 30; ++i) {
            run([&] {
                all.push_back(enter(20 + i));
                all[random() % all.size()].cancel();
            });
            pass(Duration::milliseconds(random() % 2));
        }
        for (int i = 0; i < 20; ++i) pass(Duration::milliseconds(3));
        EXPECT_THAT(all, testing::Each(testing::Property(&Promise<void>::isPending, false)));
        EXPECT_TRUE(std::ranges::is_sorted(entered));
        run([&] {
            std::vector<Promise<fn::Semaphore::Permit>> permits(5);
            for (auto& permit : permits) permit = four.acquire();
            EXPECT_FALSE(permits[3].isPending());
            EXPECT_TRUE(permits[4].isPending()) << "there are as many as at first";
        });
    }
}

TEST_F(Helpers, BringEachValueThroughAChannelOnceAndInOrderWhoeverGivesUp)
{
    for (unsigned seed = 0; seed < 50 && !HasFailure(); ++seed) {
        std::mt19937 random(seed);
        fn::Channel<int> channel(seed % 4);
        std::vector<int> sent, received;
        const auto send = [&]() -> Promise<void> {
            for (int i = 0; i < 5; ++i) {
                sent.push_back(static_cast<int>(sent.size()));
                co_await channel.send(sent.back());
                EXPECT_LE(sent.size() - received.size(), 5 + seed % 4) << "so many send at a time";
            }
        };
        const auto receive = [&]() -> Promise<void> {
            while (const auto value = co_await channel.receive()) received.push_back(*value);
        };
        std::vector<Promise<void>> work;
        run([&] {
            for (int i = 0; i < 5; ++i) work.push_back(send());
            for (int i = 0; i < 5; ++i) work.push_back(receive());
            for (int i = 0; i < 3; ++i) work[random() % 10].cancel();
            work.push_back(receive());
        });
        test::runTurns(*loop, 100);
        EXPECT_EQ(received, sent);
        run([&] { channel.close(); });
        EXPECT_THAT(work, testing::Each(testing::Property(&Promise<void>::isPending, false)));
    }
}

} // namespace
