// What can break here: a callback after its connection's end; one missed or called twice when the list changes under a fire.
#include "foundation/signal.h"
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace {

using fn::Handle;
using fn::Signal;

TEST(Signal, CallsWhomASnapshotOfTheListWouldCall)
{
    std::string heard;
    auto signal = std::make_unique<Signal<>>();
    std::vector<Handle> handles(6);
    const auto connect = [&](char name, std::function<void()> then) {
        return signal->connect([&heard, name, then = std::move(then)] {
            heard += name;
            then();
        });
    };
    handles[0] = connect('a', [&] { handles[1].invalidate(); }); // One that is to come.
    handles[1] = connect('b', [] {});
    handles[2] = connect('c', [&] {
        handles[2].invalidate(); // Itself.
        handles[3] = connect('d', [] {}); // Told by the fire within this one alone.
        signal->fire();
    });
    signal->fire();
    EXPECT_EQ(std::exchange(heard, {}), "acad");
    signal = std::make_unique<Signal<>>(std::move(*signal));
    handles[4] = connect('e', [&] { signal.reset(); });
    handles[5] = connect('f', [] {});
    signal->fire();
    EXPECT_EQ(heard, "ade");
    for (const auto& handle : handles) EXPECT_FALSE(handle);
}

TEST(Signal, MayDieOfWhatItsCallablesOwn)
{
    auto signal = std::make_unique<Signal<>>();
    auto owner = std::shared_ptr<void>(nullptr, [&](void*) { signal.reset(); });
    auto first = signal->connect([kept = std::move(owner)] {});
    auto second = signal->connect([] {});
    signal->fireOnce();
    EXPECT_FALSE(signal);
    EXPECT_FALSE(second);

    // The owner of the handle is owned by the callable.
    Signal<> other;
    auto handle = std::make_shared<Handle>();
    *handle = other.connect([handle] {});
    handle->invalidate();
    EXPECT_EQ(handle.use_count(), 1);

    // What a callable of the target owns ends the last connection of the source.
    Signal<> target, source;
    target.connect([owned = std::make_shared<Handle>(source.connect([] { FAIL(); }))] {}).detach();
    target = std::move(source);
    target.fire();
}

} // namespace
