// What can break here: a frame destroyed twice, never, or before one that refers to it; a coroutine that goes on after its end; an
// outcome lost on its way; a context that others see.
#include "foundation/coroutine/join.h"
#include "foundation/uv/loop.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <algorithm>
#include <gmock/gmock.h>
#include <random>
#include <thread>

namespace {

using fn::Promise;
using testing::ElementsAre;
using Number = Promise<int>;

std::exception_ptr failure(const char* text) { return std::make_exception_ptr(fn::RuntimeException(text)); }

/// A tree of coroutines that wait for each other and, in the end, for promises that this gives.
class Tree {
public:
    Tree(unsigned seed, bool isDisturbed) : _random(seed), _isDisturbed(isDisturbed) { }

    Number grow(const class Frame* parent, int depth);
    /// Of what is awaited; 0 is a leaf.
    std::size_t kind(int depth) { return depth == 0 ? 0 : below(_isDisturbed ? 5 : 4); }
    Number await(class Frame& frame, std::size_t kind, int depth);

    bool oneIn(unsigned count) { return _random() % count == 0; }
    std::size_t below(std::size_t count) { return _random() % count; }

    Number leaf()
    {
        ++leaves;
        if (oneIn(4)) return Number::fulfilled(1);
        return _pending.emplace_back(Number::create());
    }

    /// Somebody settles a promise; where it is disturbed, or cancels or forgets one.
    void act()
    {
        if (_isDisturbed && oneIn(5)) {
            if (const auto made = _made[below(_made.size())]) made.cancel();
            return;
        }
        if (_pending.empty()) return;
        const auto index = below(_pending.size());
        const auto promise = _pending[index];
        _pending.erase(_pending.begin() + static_cast<std::ptrdiff_t>(index));
        if (_isDisturbed && oneIn(6)) return promise.reject(failure("x"));
        if (_isDisturbed && oneIn(6)) return promise.cancel();
        if (!_isDisturbed || !oneIn(6)) promise.fulfill(1);
    }
    void forgetAll() { _pending.clear(); }
    bool isWaiting() const { return std::ranges::any_of(_pending, &Number::isPending); }

    int frames = 0;
    int leaves = 0;

private:
    friend Frame;
    std::mt19937 _random;
    const bool _isDisturbed;
    std::vector<Number> _pending;
    std::vector<Number> _made; // By the coroutines; null while one begins.
};

std::size_t trace() { return fn::WorkContext::current().traceId(); }

/// What a coroutine has in its frame and lends to those that it awaits.
class Frame {
public:
    Frame(Tree& tree, const Frame* parent) : _tree(tree), _parent(parent), _index(tree._made.size())
    {
        EXPECT_EQ(_before, parent ? parent->_index + 1 : 0) << "it begins with the context of who calls it";
        ++tree.frames;
        tree._made.emplace_back();
    }
    Frame(const Frame&) = delete;
    ~Frame()
    {
        EXPECT_TRUE(!_parent || !_parent->_hasGone) << "it is awaited from a frame that has gone";
        _hasGone = true;
        --_tree.frames;
        EXPECT_EQ(trace(), _index + 1);
    }
    void goesOn() const
    {
        const auto& promise = _tree._made[_index];
        EXPECT_FALSE(promise && promise.isCancelled()) << "a cancelled one goes on after an await";
        EXPECT_EQ(trace(), _index + 1);
    }

private:
    Tree& _tree;
    const Frame* _parent;
    const std::size_t _index;
    const std::size_t _before = trace();
    const fn::ScopedContext _context { fn::WorkContext().withTrace(_index + 1) };
    bool _hasGone = false;
};

Number Tree::await(Frame& frame, std::size_t kind, int depth)
{
    if (kind == 0) return leaf();
    if (kind == 1) return grow(&frame, depth - 1);
    if (kind == 2) return grow(&frame, depth - 1).then([](int value) { return value; });
    auto left = grow(&frame, depth - 1);
    auto right = await(frame, this->kind(depth - 1), depth - 1);
    if (kind == 3) {
        return fn::all(left, right).then([](const std::tuple<int, int>& both) {
            return std::get<0>(both) + std::get<1>(both);
        });
    }
    return fn::any(std::vector { left, right }).then([](const std::pair<std::size_t, int>& first) {
        return first.second;
    });
}

Number run(Tree& tree, const Frame* parent, int depth)
{
    Frame frame(tree, parent);
    int sum = 0;
    for (auto left = 1 + tree.below(3); left > 0; --left) {
        const auto kind = tree.kind(depth);
        auto promise = tree.await(frame, kind, depth);
        if (kind != 0 && tree.oneIn(3))
            sum += co_await promise; // A plain one that its maker forgets would not show.
        else
            sum += co_await std::move(promise);
        frame.goesOn();
        if (tree.oneIn(3)) tree.act();
    }
    co_return sum;
}

Number Tree::grow(const Frame* parent, int depth)
{
    const auto index = _made.size();
    const auto promise = run(*this, parent, depth);
    return _made[index] = promise;
}

TEST(Coroutine, GivesWhatAllThatItAwaitsGivesAndLeavesNoFrameBehind)
{
    for (unsigned seed = 0; seed < 2000 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const bool isDisturbed = seed % 2 == 1;
        Tree tree(seed, isDisturbed);
        auto loop = std::make_unique<fn::uv::Loop>();
        std::optional<int> sum;
        std::function<void()> goOn = [&] {
            for (int i = 0; i < 4; ++i) tree.act();
            EXPECT_EQ(trace(), 0u);
            if (tree.frames > 0) loop->post([&] { goOn(); });
        };
        loop->post([&] {
            tree.grow(nullptr, 4).then([&](int value) { sum = value; }, [](const std::exception_ptr&) {});
            goOn();
        });
        if (seed % 5 == 0) { // The loop goes while they wait.
            test::runTurns(*loop, 2);
            loop->post([&] { loop->postDeletion([&] { tree.forgetAll(); }); });
            loop->post([&] { loop->stop(); });
            loop->run();
            loop.reset();
        } else {
            test::runTurns(*loop, 200);
        }
        EXPECT_EQ(tree.frames, 0);
        EXPECT_FALSE(tree.isWaiting()) << "cancelling reaches what is awaited";
        if (!isDisturbed && loop) {
            EXPECT_EQ(sum, tree.leaves);
        }
    }
}

/// Awaits it, and says what came of it.
Promise<void> tell(Number promise, std::string& told)
try {
    told = "?";
    told = std::to_string(co_await std::move(promise));
} catch (const std::exception& exception) {
    told = exception.what();
}

Number addOne(Number promise) { co_return 1 + co_await std::move(promise); }

TEST(Coroutine, GoesOnAtOnceOrInsideWhatSettlesThePromiseAndLaterWhereItIsLost)
{
    std::string told;
    std::string later[4];
    Number kept;
    test::onLoop([&] {
        tell(Number::fulfilled(1), told);
        EXPECT_EQ(told, "1") << "no turn where the value is there";
        tell({}, told);
        EXPECT_THAT(told, testing::HasSubstr("NULL pointer"));
        auto promise = Number::create();
        tell(promise, told);
        promise.fulfill(2);
        EXPECT_EQ(told, "2");
        tell(promise = Number::create(), told);
        promise.reject(failure("no"));
        EXPECT_EQ(told, "no");

        tell(promise = Number::create(), later[0]);
        promise.cancel();
        tell(addOne(promise = Number::create()).then([](int value) { return value; }), later[1]);
        tell(Number::create(), later[2]);
        promise = Number::create();
        kept = promise.then([](int value) { return value; });
        promise = {};
        tell(kept, later[3]);
        for (const auto& text : later) EXPECT_EQ(text, "?") << "who loses a promise is in the middle of something";
    });
    for (const auto& text : later)
        EXPECT_EQ(text, "Who was to settle an awaited promise has forgotten or cancelled it");
}

TEST(Coroutine, SettlesAndCancelsAChainOfThousandsWithoutRecursion)
{
    std::string told; // A cancelled one's is told later.
    test::onLoop([&] {
        for (const bool isCancelled : { false, true }) {
            const auto first = Number::create();
            auto last = first;
            for (int i = 0; i < 30'000; ++i) last = addOne(std::move(last));
            if (isCancelled)
                last.cancel();
            else
                first.fulfill(0);
            EXPECT_EQ(first.isCancelled(), isCancelled);
            tell(last, told);
            EXPECT_EQ(told, isCancelled ? "?" : "30000");
        }
    });
}

TEST(Coroutine, IsOfOneThread)
{
    const test::ExpectAssertions assertions;
    std::string told;
    test::onLoop([&] {
        const auto elsewhere = Number::create();
        const auto begun = addOne(elsewhere);
        std::thread([&] { test::onLoop([&] { tell(begun, told); }); }).join();
        EXPECT_EQ(told, "A coroutine is awaited on the thread that began it");
        std::thread([&] { elsewhere.fulfill(1); }).join();
    });
    EXPECT_THAT(assertions.reports(), ElementsAre(testing::HasSubstr("is resumed on the thread that began it")));
}

struct Owner {
    Owner(const Owner&) = delete;
};

using fn::internal::parametersAreKept;
static_assert(parametersAreKept<int, int, const std::string, Owner&, int*>());
static_assert(parametersAreKept<int, const Owner&, std::string>(), "`this` of a const member function");
static_assert(!parametersAreKept<int, Owner&, const std::string&>());
static_assert(!parametersAreKept<int, std::string&&>());
static_assert(!parametersAreKept<void, const std::function<Promise<void>()>&>());

} // namespace
