// What can break here: a callable run twice, never or too early; a failure or cancellation that gets lost; captures that live on.
#include "base/exceptions.h"
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

// Promises belong to a running loop.
void onLoop(const std::function<void()>& step)
{
    fn::uv::Loop loop;
    loop.post(step);
    test::runTurns(loop);
}

using Outcome = std::pair<bool, std::string>; // Whether it is a failure, and the text of it or of the value.

/// A chain of promises whose callables give a value, throw, or hand on to another promise; beside it a model of its end.
/// Sometimes it is cancelled while it waits.
class Chain {
public:
    explicit Chain(unsigned seed) : _random(seed) { }

    void run()
    {
        inTurn([&] {
            build({ oneIn(3), "s" });
            EXPECT_EQ(_calls, 0) << "Nothing runs inside of then().";
        });
        while (!_open.empty()) {
            inTurn([&] {
                const auto [promise, outcome] = _open.back();
                _open.pop_back();
                EXPECT_FALSE(_end) << "It waits for its source, and for what a callable has returned.";
                cancelSometimes(promise);
                settle(promise, outcome);
                settle(promise, { false, "ignored" });
                EXPECT_TRUE(_isFollowing || _isCancelled || _end) << "All runs inside of settling.";
            });
        }
        EXPECT_EQ(_cancels, _isCancelled ? 1 : 0);
        EXPECT_EQ(_token.use_count(), 1) << "What the callables own goes when all is settled.";
        EXPECT_EQ(_end, _isCancelled ? std::nullopt : std::optional(_expected));
    }

private:
    bool oneIn(unsigned count) { return _random() % count == 0; }

    void inTurn(const std::function<void()>& step)
    {
        _loop.post(step);
        test::runTurns(_loop);
    }

    /// Ends that way: at once, or later.
    Text promiseOf(const Outcome& outcome)
    {
        auto promise = Text::create();
        promise.onCancel([this, kept = _token] { ++_cancels; });
        if (oneIn(2))
            settle(promise, outcome);
        else
            _open.emplace_back(promise, outcome);
        return promise;
    }

    void settle(const Text& promise, const Outcome& outcome)
    {
        if (outcome.first)
            promise.reject(failure(outcome.second));
        else
            promise.fulfill(outcome.second);
    }

    void build(const Outcome& first)
    {
        _links = { promiseOf(first) };
        _expected = first;
        for (auto left = _random() % 6; left > 0; --left) {
            const bool fails = oneIn(3), handlesFailures = oneIn(2);
            if (oneIn(4)) {
                _isFollowing = true;
                attach(handlesFailures, [this, fails, kept = _token](const std::string& text) {
                    ++_calls;
                    return promiseOf({ fails, text + "." });
                });
            } else {
                attach(handlesFailures, [this, fails, kept = _token](const std::string& text) {
                    ++_calls;
                    if (fails) throw std::runtime_error(text + ".");
                    return text + ".";
                });
            }
            if (!_expected.first || handlesFailures) _expected = { fails, _expected.second + "." };
        }
        const auto end = [this, kept = _token](bool isFailure, const std::string& text) { _end = { isFailure, text }; };
        _links.back().then([end](const std::string& text) { end(false, text); },
            [end](const std::exception_ptr& e) { end(true, textOf(e)); });
    }

    template <typename Callable> void attach(bool handlesFailures, const Callable& callable)
    {
        const auto onFailure = [callable](const std::exception_ptr& e) { return callable(textOf(e)); };
        const auto last = _links.back();
        _links.push_back(handlesFailures ? last.then(callable, onFailure) : last.then(callable));
    }

    void cancelSometimes(const Text& source)
    {
        if (_isCancelled || !oneIn(6)) return;
        _isCancelled = true;
        for (int times = 0; times < 2; ++times) _links.back().cancel();
        EXPECT_TRUE(source.isCancelled());
    }

    std::mt19937 _random;
    fn::uv::Loop _loop;
    std::vector<Text> _links;
    std::vector<std::pair<Text, Outcome>> _open; ///< And how they will end.
    Outcome _expected;
    std::optional<Outcome> _end;
    bool _isFollowing = false;
    bool _isCancelled = false;
    int _calls = 0;
    int _cancels = 0;
    const std::shared_ptr<int> _token = std::make_shared<int>();
};

TEST(Promise, EndsAsAModelSays)
{
    for (unsigned seed = 0; seed < 1000 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Chain(seed).run();
    }
}

TEST(Promise, CancellingReachesEveryHandlerAlsoBehindOneThatThrows)
{
    const test::ExpectUnhandled unhandled;
    int reached = 0;
    onLoop([&] {
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

        const auto settled = Promise<int>::fulfilled(1);
        settled.onCancel([] { FAIL() << "nobody works for it"; });
        settled.cancel();
        settled.then([](int) { FAIL() << "its outcome is on its way already"; }).cancel();
    });
    EXPECT_THAT(unhandled.messages(), ElementsAre("handler"));
}

TEST(Promise, LivesWhileItSettlesThoughItsLastCopyGoesAndFreesAChainThatIsDropped)
{
    const auto owned = std::make_shared<int>();
    onLoop([&] {
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
        const auto hopeless = Promise<int>::create();
        hopeless.cancel();
        hopeless.then([owned](int) {});
        EXPECT_EQ(owned.use_count(), 1);
    });
}

TEST(Promise, ReportsMisuseAndGoesOn)
{
    const test::ExpectAssertions assertions;
    std::vector<int> got;
    int failures = 0;
    onLoop([&] {
        const auto promise = Promise<int>::create();
        promise.then([](int) { FAIL() << "the latest one counts"; });
        promise.then([&](int value) { got.push_back(value); });
        for (int times = 0; times < 2; ++times) promise.onCancel([] { FAIL(); });
        promise.fulfill(1);
        // None can follow itself, or nothing.
        const auto start = Promise<void>::create();
        Promise<void> circle;
        circle = start.then([&] { return circle; }).then([] {});
        for (const auto& refused : { circle, Promise<void>::fulfilled().then([] { return Promise<void>(); }) })
            refused.then([] { FAIL(); }, [&](const std::exception_ptr&) { ++failures; });
        start.fulfill();
    });
    EXPECT_EQ(failures, 2);
    // Off a loop, the default loop carries it.
    Promise<int>::fulfilled(2).then([&](int value) { got.push_back(value); });
    test::runTurns(fn::RunLoop::defaultLoop());
    EXPECT_THAT(got, ElementsAre(1, 2));
    EXPECT_EQ(assertions.reports().size(), 3U);
}

} // namespace
