// What can break here: a callback after its connection's end; one missed or called twice when the list changes under a fire.
#include "foundation/signal.h"
#include "support/expectations.h"
#include <deque>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <random>
#include <set>

namespace {

using fn::Handle;
using fn::Signal;

/// Random histories of one signal against a copy of the list per fire.
class History {
public:
    explicit History(unsigned seed) : _random(seed) { }

    void run()
    {
        for (int i = 0; i < 4; ++i) connect();
        for (int i = 0; i < 5 && _signal; ++i) fire();
        EXPECT_EQ(_token.use_count(), 1 + static_cast<long>(_connected.size()));
        EXPECT_EQ(_unhandled.messages().size(), _thrown);
        for (const auto& [id, handle] : _handles) EXPECT_EQ(static_cast<bool>(handle), _connected.contains(id));
    }

private:
    bool oneIn(unsigned n) { return _random() % n == 0; }

    void connect()
    {
        const int id = _nextId++;
        _handles[id] = _signal->connect([this, id, kept = _token](const std::string& argument) {
            EXPECT_EQ(nextExpected(), id);
            change();
            EXPECT_EQ(argument, "an argument that outlives the signal");
            if (!oneIn(300)) return;
            ++_thrown;
            throw 1;
        });
        _connected.insert(id);
    }

    void change()
    {
        if (!_signal) return;
        if (_connected.size() < 8 && oneIn(3)) connect();
        while (!_handles.empty() && oneIn(3)) endOne(std::next(_handles.begin(), _random() % _handles.size()));
        if (_snapshots.size() < 4 && oneIn(3)) fire();
        if (!_signal) return;
        if (oneIn(10)) _signal = std::make_unique<Signal<std::string>>(std::move(*_signal)); // Its fires go on there.
        if (!oneIn(40)) return;
        _signal.reset();
        _connected.clear();
    }

    void endOne(std::map<int, Handle>::iterator entry)
    {
        if (oneIn(4)) {
            entry->second.detach(); // For as long as the signal lives.
        } else {
            Handle moved(std::move(entry->second));
            _connected.erase(entry->first);
        }
        _handles.erase(entry);
    }

    void fire()
    {
        _snapshots.emplace_back(_connected.begin(), _connected.end());
        _signal->fire("an argument that outlives the signal");
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
            if (_connected.contains(id)) return id;
        }
        return -1;
    }

    const test::ExpectUnhandled _unhandled;
    std::size_t _thrown = 0;
    std::mt19937 _random;
    std::unique_ptr<Signal<std::string>> _signal = std::make_unique<Signal<std::string>>();
    int _nextId = 0;
    std::set<int> _connected; // In the order of connection.
    std::map<int, Handle> _handles;
    std::list<std::deque<int>> _snapshots; // Of the fires going on, each within the one before.
    const std::shared_ptr<int> _token = std::make_shared<int>();
};

TEST(Signal, CallsWhomASnapshotOfTheListWouldCall)
{
    for (unsigned seed = 0; seed < 1000 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        History(seed).run();
    }
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
