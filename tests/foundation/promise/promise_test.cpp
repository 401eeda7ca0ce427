// What can break here: a callable run twice, never, or at the wrong moment; a failure lost on its way; a cancellation that
// does not reach the producer; captures that outlive their promise, or die while they are in use.
#include "foundation/exceptions.h"
#include "foundation/promise.h"
#include "foundation/uv/loop.h"
#include "support/expectations.h"
#include <gmock/gmock.h>

namespace {

using fn::Promise;
using testing::ElementsAre;
using Log = std::vector<std::string>;

// Runs the steps on a loop; what one step posts is done before the next step.
void inTurns(std::vector<std::function<void()>> steps)
{
    fn::uv::Loop loop;
    std::size_t next = 0;
    std::function<void()> step = [&] {
        if (next == steps.size()) return loop.stop();
        steps[next++]();
        loop.post([&] { step(); });
    };
    loop.post([&] { step(); });
    loop.run();
    EXPECT_EQ(next, steps.size());
}

std::exception_ptr failure(const char* text) { return std::make_exception_ptr(std::runtime_error(text)); }

std::string textOf(const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& e) {
        return e.what();
    }
}

// Notes how a promise ends.
template <typename T> void watch(const Promise<T>& promise, Log& log, const std::string& name)
{
    const auto rejected = [&log, name](std::exception_ptr e) { log.push_back(name + " rejected " + textOf(e)); };
    if constexpr (std::is_void_v<T>)
        promise.then([&log, name] { log.push_back(name + " done"); }, rejected);
    else
        promise.then([&log, name](const T& value) { log.push_back(fmt::format("{} {}", name, value)); }, rejected);
}

// The end of a promise: a value, a failure, or an attempt to settle it again.
TEST(Promise, RunsItsConsumerInsideSettlingAndNeverInsideThen)
{
    Log log;
    const auto early = Promise<int>::create();
    const auto earlyFailure = Promise<void>::rejected(failure("a"));
    inTurns({
        [&] {
            const auto late = Promise<int>::create();
            watch(late.then([](int value) { return value + 1; }), log, "late");
            late.fulfill(1);
            EXPECT_THAT(log, ElementsAre("late 2"));
            late.fulfill(5);
            late.reject(failure("ignored"));

            early.fulfill(3);
            early.fulfill(4);
            watch(early, log, "early");
            watch(earlyFailure, log, "failure");
            watch(Promise<void>::fulfilled(), log, "void");
            EXPECT_EQ(log.size(), 1u);
        },
        [&] { EXPECT_THAT(log, ElementsAre("late 2", "early 3", "failure rejected a", "void done")); },
    });
}

TEST(Promise, PassesAFailureOnUntilAConsumerHandlesIt)
{
    Log log;
    inTurns({ [&] {
        const auto root = Promise<int>::create();
        const auto skipped = [&](auto&&...) { log.push_back("must not run"); };
        const auto passed = root.then([&](int) { skipped(); }).then([&] { skipped(); });
        const auto handled =
            passed.then([&] { return 0; }, [](std::exception_ptr e) { return textOf(e) == "a" ? 7 : 0; });
        const auto thrown = handled.then([](int value) -> int { throw std::runtime_error(std::to_string(value)); });
        const auto rethrown =
            thrown.then([](int) {}, [](std::exception_ptr e) { throw fn::RangeException(textOf(e).c_str()); });
        watch(rethrown, log, "end");
        root.reject(failure("a"));
        EXPECT_THAT(log, ElementsAre("end rejected 7"));
    } });
}

// onFulfilled or onRejected that gives a promise.
TEST(Promise, FollowsAReturnedPromise)
{
    Log log;
    inTurns({
        [&] {
            const auto inner = Promise<int>::create();
            const auto outer = Promise<void>::create();
            watch(outer.then([=] { return inner; }), log, "pending");
            outer.fulfill();
            EXPECT_TRUE(log.empty());
            inner.fulfill(1);
            EXPECT_THAT(log, ElementsAre("pending 1"));

            const auto failed = Promise<void>::rejected(failure("a"));
            const auto start = Promise<void>::fulfilled();
            watch(start.then([=] { return failed; }), log, "failed");
            const auto recovers = [](std::exception_ptr) { return Promise<int>::fulfilled(2); };
            watch(
                Promise<int>::rejected(failure("b")).then([](int value) { return value; }, recovers), log, "recovered");
            watch(Promise<void>::fulfilled().then([] { return Promise<int>(); }), log, "null");

            Promise<void> end;
            const auto start2 = Promise<void>::create();
            end = start2.then([&] { return end; }).then([] {});
            watch(end, log, "circle");
            start2.fulfill();
            EXPECT_THAT(log, ElementsAre("pending 1", "circle rejected A promise cannot follow itself"));
        },
        [] {},
        [] {},
        [&] {
            EXPECT_EQ(log.size(), 5u);
            EXPECT_THAT(log, testing::Contains("failed rejected a"));
            EXPECT_THAT(log, testing::Contains("recovered 2"));
            EXPECT_THAT(log, testing::Contains(testing::StartsWith("null rejected Attempted to dereference NULL")));
        },
    });
}

TEST(Promise, CancellingReachesTheProducerAndNobodyInBetween)
{
    Log log;
    inTurns({ [&] {
                 const auto root = Promise<int>::create();
                 root.onCancel([&] { log.push_back("root"); });
                 const auto middle = root.then([&](int) { log.push_back("must not run"); });
                 middle.onCancel([&] { log.push_back("middle"); });
                 const auto last =
                     middle.then([&] { log.push_back("must not run"); }, [&](auto) { log.push_back("must not run"); });
                 last.cancel();
                 EXPECT_THAT(log, ElementsAre("middle", "root"));
                 EXPECT_TRUE(root.isCancelled());
                 root.fulfill(1);
                 root.reject(failure("a"));
                 last.cancel();
                 watch(last, log, "after");
                 // Its outcome is on its way already.
                 Promise<int>::fulfilled(1).then([&](int) { log.push_back("must not run"); }).cancel();
             },
        [&] {
            EXPECT_THAT(log, ElementsAre("middle", "root"));
            const auto settled = Promise<int>::fulfilled(1);
            settled.onCancel([&] { log.push_back("must not run"); });
            settled.cancel();
            EXPECT_FALSE(settled.isCancelled());
            EXPECT_EQ(log.size(), 2u);
        } });
}

TEST(Promise, CancellingReachesThePromiseThatACallableReturned)
{
    int cancelled = 0;
    inTurns({ [&] {
        const auto inner = Promise<int>::create();
        inner.onCancel([&] { ++cancelled; });
        const auto outer = Promise<void>::create();
        const auto end = outer.then([=] { return inner; }).then([](int) { FAIL(); });
        outer.fulfill();
        EXPECT_TRUE(inner.isPending());
        end.cancel();
        EXPECT_EQ(cancelled, 1);

        // Cancelled by the callable itself, before it gives the promise.
        const auto late = Promise<int>::create();
        late.onCancel([&] { ++cancelled; });
        Promise<int> self;
        const auto start = Promise<void>::create();
        self = start.then([&] {
            self.cancel();
            return late;
        });
        start.fulfill();
        EXPECT_EQ(cancelled, 2);
    } });
}

TEST(Promise, CancellingSurvivesAHandlerThatThrowsAndProducersThatHaveGone)
{
    const test::ExpectUnhandled unhandled;
    inTurns({ [&] {
        auto root = Promise<int>::create();
        bool reached = false;
        root.onCancel([&] { reached = true; });
        const auto next = root.then([](int) {});
        next.onCancel([] { throw std::runtime_error("handler"); });
        next.cancel();
        EXPECT_TRUE(reached);
        EXPECT_THAT(unhandled.messages(), ElementsAre("handler"));

        root = Promise<int>::create();
        root.onCancel([] { FAIL() << "dropping cancels nothing"; });
        const auto orphan = root.then([](int) {});
        root = {};
        EXPECT_TRUE(orphan.isPending());
        orphan.cancel();
    } });
}

TEST(Promise, ReleasesWhatItsCallablesOwnWhenItSettles)
{
    const auto owned = std::make_shared<int>();
    const auto chain = [&](const Promise<int>& promise) {
        promise.onCancel([owned] {});
        return promise.then([owned](int) {}, [owned](std::exception_ptr) {}).then([owned] {});
    };
    inTurns({ [&] {
                 const auto fulfilled = Promise<int>::create(), rejected = Promise<int>::create(),
                            cancelled = Promise<int>::create();
                 const auto kept = { chain(fulfilled), chain(rejected), chain(cancelled) };
                 EXPECT_EQ(owned.use_count(), 13);
                 fulfilled.fulfill(1);
                 EXPECT_EQ(owned.use_count(), 9);
                 rejected.reject(failure("a"));
                 EXPECT_EQ(owned.use_count(), 5);
                 std::data(kept)[2].cancel();
                 EXPECT_EQ(owned.use_count(), 1);

                 // Installed when there is nothing left to wait for.
                 const auto hopeless = Promise<int>::create();
                 hopeless.cancel();
                 chain(hopeless);
                 EXPECT_EQ(owned.use_count(), 1);

                 chain(Promise<int>::create());
                 EXPECT_EQ(owned.use_count(), 1) << "a dropped chain";
                 chain(Promise<int>::fulfilled(1));
                 EXPECT_GT(owned.use_count(), 1) << "waits for its turn";
             },
        [&] { EXPECT_EQ(owned.use_count(), 1); } });
}

TEST(Promise, LivesWhileItSettlesThoughItsLastCopyGoes)
{
    inTurns({ [] {
        auto promise = std::make_unique<Promise<int>>(Promise<int>::create());
        promise->then([&](int) { promise.reset(); });
        promise->onCancel([] {});
        promise->fulfill(1);

        promise = std::make_unique<Promise<int>>(Promise<int>::create());
        promise->onCancel([&] { promise.reset(); });
        promise->then([](int) {});
        promise->cancel();
        EXPECT_FALSE(promise);
    } });
}

TEST(Promise, MovesValuesAndCallablesThatCannotBeCopied)
{
    int got = 0;
    inTurns({ [&] {
        const auto promise = Promise<std::unique_ptr<int>>::create();
        promise
            .then([extra = std::make_unique<int>(2)](
                      std::unique_ptr<int> value) { return std::make_unique<int>(*value + *extra); })
            .then([&](std::unique_ptr<int>&& value) { got = *value; });
        promise.fulfill(std::make_unique<int>(1));
    } });
    EXPECT_EQ(got, 3);
}

TEST(Promise, ReportsMisuseAndGoesOn)
{
    const test::ExpectAssertions assertions;
    Log log;
    inTurns({ [&] {
                 const auto promise = Promise<int>::create();
                 watch(promise, log, "first");
                 watch(promise, log, "second");
                 promise.onCancel([&] { log.push_back("first"); });
                 promise.onCancel([&] { log.push_back("second"); });
                 promise.fulfill(1);
                 EXPECT_THAT(log, ElementsAre("second 1"));

                 const auto settled = Promise<int>::fulfilled(2);
                 watch(settled, log, "first");
                 watch(settled, log, "second");
             },
        [&] { EXPECT_THAT(log, ElementsAre("second 1", "second 2")); } });

    // Off a loop, the default loop carries it.
    watch(Promise<int>::fulfilled(3), log, "default loop");
    auto& loop = fn::RunLoop::defaultLoop();
    loop.post([&] { loop.stop(); });
    loop.run();
    EXPECT_EQ(log.back(), "default loop 3");

    const std::string second =
        "libs/foundation/promise:277 then There can only be one fulfillment and rejection handler";
    EXPECT_THAT(assertions.reports(),
        ElementsAre(second, "libs/foundation/promise:308 onCancel Cancellation handler already set", second,
            "libs/foundation/promise:482 then Function must be called on main thread, and no loop runs on it"));
}

TEST(Promise, ThrowsFromEveryOperationWhenItIsNull)
{
    const Promise<int> null;
    EXPECT_FALSE(null);
    for (const std::function<void()>& operation : { std::function<void()>([&] { null.fulfill(1); }),
             { [&] { null.reject(failure("a")); } }, { [&] { null.cancel(); } }, { [&] { null.onCancel([] {}); } },
             { [&] { null.then([](int) {}); } }, { [&] { (void)null.isPending(); } } }) {
        EXPECT_THROW(operation(), fn::NullPointerException);
    }
}

} // namespace
