// What can break here: a callable run twice, never or too early; a failure or cancellation that gets lost; captures that live on.
#include "foundation/promise.h"
#include "foundation/uv/loop.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <gmock/gmock.h>
#include <random>

namespace {

using fn::Promise;
using testing::ElementsAre;
using Text = Promise<std::string>;

std::exception_ptr failure(const std::string& text) { return std::make_exception_ptr(std::runtime_error(text)); }

std::string textOf(const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& e) {
        return e.what();
    }
}

using Outcome = std::pair<bool, std::string>; // Whether it is a failure, and the text of it or of the value.
using Pending = std::vector<std::pair<Text, Outcome>>; // And how they will end.

void settleLast(Pending& pending)
{
    const auto [promise, outcome] = pending.back();
    pending.pop_back();
    if (outcome.first)
        promise.reject(failure(outcome.second));
    else
        promise.fulfill(outcome.second);
}

/// A chain of promises whose callables give a value, throw, or hand on to another promise that ends at once or later.
TEST(Promise, EndsAsAModelSays)
{
    for (unsigned seed = 0; seed < 1000 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const auto oneIn = [&](unsigned count) { return random() % count == 0; };
        Pending pending;
        const auto promiseOf = [&](const Outcome& outcome) {
            const auto promise = Text::create();
            pending.emplace_back(promise, outcome);
            if (oneIn(2)) settleLast(pending);
            return promise;
        };
        const auto token = std::make_shared<int>();
        Outcome expected { oneIn(3), "s" };
        std::optional<Outcome> end;
        fn::uv::Loop loop;
        loop.post([&] {
            auto last = promiseOf(expected);
            for (auto left = random() % 6; left > 0; --left) {
                const bool fails = oneIn(3), handlesFailures = oneIn(2);
                const auto attach = [&](const auto& callable) {
                    const auto onFailure = [callable](const std::exception_ptr& e) { return callable(textOf(e)); };
                    last = handlesFailures ? last.then(callable, onFailure) : last.then(callable);
                };
                const auto next = [fails](const std::string& text) { return Outcome { fails, text + "." }; };
                if (oneIn(4))
                    attach([&, next, kept = token](const std::string& text) { return promiseOf(next(text)); });
                else
                    attach([next, kept = token](const std::string& text) {
                        if (next(text).first) throw std::runtime_error(next(text).second);
                        return next(text).second;
                    });
                if (!expected.first || handlesFailures) expected = next(expected.second);
            }
            last.then(
                [&, kept = token](const std::string& text) {
                    end = { false, text };
                },
                [&, kept = token](const std::exception_ptr& e) {
                    end = { true, textOf(e) };
                });
            EXPECT_FALSE(end) << "nothing runs inside of then()";
        });
        for (test::runTurns(loop); !pending.empty(); test::runTurns(loop)) {
            EXPECT_FALSE(end) << "it waits for its source, and for what a callable has returned";
            loop.post([&] { settleLast(pending); });
        }
        EXPECT_EQ(end, expected);
        EXPECT_EQ(token.use_count(), 1) << "what the callables own goes when all is settled";
    }
}

TEST(Promise, CancellingReachesEveryHandlerAlsoBehindOneThatThrows)
{
    const test::ExpectUnhandled unhandled;
    int reached = 0;
    test::onLoop([&] {
        auto root = Promise<int>::create();
        root.onCancel([&] { ++reached; });
        const auto next = root.then([](int) {});
        next.onCancel([] { throw std::runtime_error("handler"); });
        next.cancel();
        EXPECT_EQ(reached, 1);

        root = Promise<int>::create();
        root.onCancel([] { FAIL() << "dropping cancels nothing"; });
        const auto orphan = root.then([](int) {});
        root = {};
        EXPECT_TRUE(orphan.isPending());
        orphan.cancel();

        Promise<int>::fulfilled(1).then([](int) { FAIL() << "its outcome is on its way already"; }).cancel();
    });
    EXPECT_THAT(unhandled.messages(), ElementsAre("handler"));
}

TEST(Promise, LivesWhileItSettlesThoughItsLastCopyGoesAndFreesAChainThatIsDropped)
{
    const auto owned = std::make_shared<int>();
    test::onLoop([&] {
        auto promise = std::make_unique<Promise<int>>(Promise<int>::create());
        promise->then([&](int) { promise.reset(); });
        promise->onCancel([] {});
        promise->fulfill(1);

        promise = std::make_unique<Promise<int>>(Promise<int>::create());
        promise->onCancel([&] { promise.reset(); });
        promise->then([](int) {});
        promise->cancel();
        EXPECT_FALSE(promise);

        Promise<int>::create().then([owned](int) {}, [owned](const std::exception_ptr&) {}).then([owned] {});
        EXPECT_EQ(owned.use_count(), 1);
    });
}

} // namespace
