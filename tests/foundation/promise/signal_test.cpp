// What can break here: a callback called after its connection ended, or on freed memory; one missed or called twice when
// the list changes under a fire; a handle that points at a dead connection.
#include "foundation/signal.h"
#include "support/expectations.h"
#include <deque>
#include <gmock/gmock.h>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using fn::Handle;
using fn::Signal;
using testing::ElementsAre;

TEST(Signal, EndsQuietlyWhenACallbackDestroysIt)
{
    auto signal = std::make_unique<Signal<std::string>>();
    int calls = 0;
    std::string seen;
    const auto owned = std::make_shared<int>();
    std::vector<Handle> handles;
    for (int i = 0; i < 3; ++i) {
        handles.push_back(signal->connect([&, owned](const std::string& text) {
            if (++calls == 2) { // Inside the nested fire of the first callback: two frames run on the dead signal.
                signal.reset();
                seen = text;
            } else {
                signal->fire("nested");
            }
        }));
    }
    signal->fire(std::string("outer"));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(seen, "nested");
    EXPECT_EQ(owned.use_count(), 1);
    for (const auto& handle : handles) EXPECT_FALSE(handle);
}

TEST(Signal, ReportsWhatCallbacksThrowAndGoesOn)
{
    const test::ExpectUnhandled unhandled;
    Signal<int> signal;
    int sum = 0;
    const auto first = signal.connect([](int) { throw std::runtime_error("first"); });
    const auto second = signal.connect([](int) { throw 1; });
    const auto third = signal.connect([&](int value) { sum += value; });
    signal.fire(3);
    signal.fireOnce(4);
    EXPECT_EQ(sum, 7);
    EXPECT_THAT(unhandled.messages(), ElementsAre("first", "unknown exception", "first", "unknown exception"));
    const auto late = signal.connect([](int) { throw std::runtime_error("late"); });
    EXPECT_EQ(unhandled.messages().back(), "late");
}

TEST(Signal, FiresOnceForThoseWhoComeLaterToo)
{
    const test::ExpectAssertions assertions;
    std::vector<std::string> log;
    auto signal = std::make_unique<Signal<std::string, int>>();
    Handle inner;
    auto handle = signal->connect([&](const std::string& text, int number) {
        log.push_back(text + std::to_string(number));
        inner = signal->connect([&](const std::string& again, int) { log.push_back("inner " + again); });
    });
    signal->fireOnce("a", 1);
    EXPECT_THAT(log, ElementsAre("a1", "inner a"));
    EXPECT_FALSE(handle);
    EXPECT_FALSE(inner);
    signal->fire("b", 2); // Nobody is left.
    EXPECT_EQ(log.size(), 2u);
    signal->fireOnce("c", 3);
    EXPECT_THAT(assertions.reports(),
        ElementsAre("libs/foundation/signal:197 fireOnce fireOnce(...) can only be called once per event"));

    const auto late = signal->connect([&](const std::string& text, int) {
        signal.reset();
        log.push_back("late " + text);
    });
    EXPECT_FALSE(late);
    EXPECT_EQ(log.back(), "late c");
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

TEST(Signal, LeavesTheConnectionToWhoeverHoldsTheHandle)
{
    int calls = 0;
    Handle survivor;
    {
        Signal<> signal;
        const auto connect = [&] { return signal.connect([&] { ++calls; }); };
        connect().detach();
        survivor = connect();
        survivor = connect(); // Ends the one before.
        Handle moved(std::move(survivor));
        EXPECT_FALSE(survivor);
        signal.fire();
        EXPECT_EQ(calls, 2);
        survivor = std::move(moved);
        Signal<> heir(std::move(signal));
        signal.fire();
        heir.fire();
        EXPECT_EQ(calls, 4);
        EXPECT_TRUE(survivor);
    }
    EXPECT_FALSE(survivor);
}

// Random histories against a copy of the list per fire.
class History {
public:
    explicit History(unsigned seed) : _random(seed) { }

    void run()
    {
        for (int i = 0; i < 4; ++i) connect();
        for (int i = 0; i < 5; ++i) fire();
    }

private:
    bool oneIn(unsigned n) { return _random() % n == 0; }

    void connect()
    {
        const int id = _nextId++;
        _handles[id] = _signal.connect([this, id] {
            EXPECT_EQ(nextExpected(), id);
            change();
        });
    }

    void change()
    {
        if (_handles.size() < 8 && oneIn(3)) connect();
        while (!_handles.empty() && oneIn(3)) _handles.erase(std::next(_handles.begin(), _random() % _handles.size()));
        if (_snapshots.size() < 4 && oneIn(3)) fire();
    }

    void fire()
    {
        auto& snapshot = _snapshots.emplace_back();
        for (const auto& [id, handle] : _handles) snapshot.push_back(id);
        _signal.fire();
        EXPECT_EQ(nextExpected(), -1);
        _snapshots.pop_back();
    }

    // The next of the innermost snapshot who is still connected.
    int nextExpected()
    {
        auto& snapshot = _snapshots.back();
        while (!snapshot.empty()) {
            const int id = snapshot.front();
            snapshot.pop_front();
            if (_handles.contains(id)) return id;
        }
        return -1;
    }

    std::mt19937 _random;
    Signal<> _signal;
    int _nextId = 0;
    std::map<int, Handle> _handles; // In the order of connection.
    std::list<std::deque<int>> _snapshots;
};

TEST(Signal, CallsWhomASnapshotOfTheListWouldCall)
{
    for (unsigned seed = 0; seed < 500 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        History(seed).run();
    }
}

} // namespace
