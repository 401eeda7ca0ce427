// What can break here: a call of an empty function that crashes, an empty source that becomes a full target.
#include <folly/Function.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

int twice(int value) { return 2 * value; }

TEST(Function, ThrowsWhenItIsEmptyWhereverTheEmptinessComesFrom)
{
    folly::Function<int(int)> moved = twice;
    const auto taken = std::move(moved);
    EXPECT_TRUE(taken);
    folly::Function<int(int)> cleared = twice;
    cleared = nullptr;
    for (auto* function : { &moved, &cleared }) {
        EXPECT_EQ(*function, nullptr);
        EXPECT_THROW((*function)(1), std::bad_function_call);
    }
    EXPECT_FALSE((folly::Function<int(int)>(static_cast<int (*)(int)>(nullptr))));
    EXPECT_FALSE((folly::Function<int(int)>(std::function<int(int)>())));
    EXPECT_FALSE((folly::Function<int(int)>(folly::Function<int(int) const>())));
}

TEST(Function, KeepsConstnessCapturesAndArguments)
{
    using Adder = folly::Function<int(std::unique_ptr<int>) const>;
    const Adder adder = [base = std::make_unique<int>(3)](std::unique_ptr<int> value) { return *base + *value; };
    EXPECT_EQ(adder(std::make_unique<int>(4)), 7);
    folly::Function<int()> counter = [count = 0]() mutable { return ++count; };
    counter();
    EXPECT_EQ(counter(), 2);
    static_assert(!std::is_invocable_v<const folly::Function<int()>&>);
    static_assert(!std::is_copy_constructible_v<folly::Function<int()>>);
    static_assert(!std::is_constructible_v<folly::Function<int(int) noexcept>, int (*)(int)>);
}

} // namespace
