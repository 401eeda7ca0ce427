// What can break here: a call of an empty function that crashes, an empty source that becomes a full target.
#include <folly/Function.h>
#include <gtest/gtest.h>

namespace {

TEST(Function, ThrowsWhenItIsEmptyWhereverTheEmptinessComesFrom)
{
    using Function = folly::Function<int(int)>;
    Function moved = [](int value) { return 2 * value; };
    auto taken = std::move(moved);
    EXPECT_EQ(taken(2), 4);
    taken = nullptr;
    Function functions[] = { std::move(moved), std::move(taken), static_cast<int (*)(int)>(nullptr),
        std::function<int(int)>(), folly::Function<int(int) const>() };
    for (auto& function : functions) {
        EXPECT_EQ(function, nullptr);
        EXPECT_THROW(function(1), std::bad_function_call);
    }
    static_assert(!std::is_copy_constructible_v<Function>);
    static_assert(!std::is_constructible_v<folly::Function<int(int) noexcept>, int (*)(int)>);
}

} // namespace
