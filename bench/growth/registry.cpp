// The registry with many entries and many who wait for what is not there.
#include "growth/roles.h"
#include <algorithm>
#include <fmt/format.h>

namespace bench::growth {
namespace {

constexpr std::size_t timedSteps = 100;
constexpr std::size_t together = 1000; // Steps that are under way at the same time while the tables are filled.
constexpr auto longWait = fn::Duration::seconds(3600);

/// Every entry is of a class of its own: that is what the registry is keyed by.
class EntryReference final : public ipc::CallableObjectReference {
public:
    EntryReference(ipc::ObjectReferenceInitializer& initializer, fn::String name)
        : CallableObjectReference(initializer),
          _name(std::move(name))
    {
    }
    explicit EntryReference(ipc::ObjectReferenceInitializer& initializer) : EntryReference(initializer, wanted) { }

    fn::String className() const override { return _name; }

    static fn::String wanted; ///< The class that the next look-up asks for.

private:
    const fn::String _name;
};

fn::String EntryReference::wanted;

class Entry final : public ipc::CallableObjectInstance {
public:
    Entry(ipc::Worker& worker, std::size_t number)
        : CallableObjectInstance(worker),
          _name(fn::String(fmt::format("bench::Entry{:06}", number)))
    {
    }

protected:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<EntryReference>(initializer, _name);
    }

private:
    const fn::String _name;
};

/// One worker that registers, and another one that looks up and waits; both on one loop.
class RegistryLoad {
public:
    explicit RegistryLoad(const Options& options) : _registrar(options, _loop), _user(options, _loop) { }

    void fill(std::size_t entries)
    {
        while (_entries.size() < entries) {
            std::size_t left = std::min(together, entries - _entries.size());
            for (std::size_t i = left; i > 0; --i) addEntry(left);
            _registrar.runUntil([&] { return left == 0; });
        }
    }

    void wait(std::size_t waiters)
    {
        for (; _waiters < waiters; ++_waiters)
            lookUp(fmt::format("bench::Missing{:06}", _waiters), longWait)
                .then([](auto&&) { fail("what does not exist was found"); }, failing("getInstance"));
        _user.await(lookUp(nameOf(0), longWait), "getInstance"); // Behind all of them.
    }

    /// Reports what one step costs now. The entries that it registers stay.
    void measure()
    {
        const auto registering = timed([&](std::size_t) {
            std::size_t left = 1;
            addEntry(left);
            _registrar.runUntil([&] { return left == 0; });
        });
        std::vector<fn::AutoPtr<EntryReference>> found;
        const auto lookingUp = timed([&](std::size_t step) {
            // Over all of the table, no class twice.
            const auto number = step * _entries.size() / timedSteps;
            found.push_back(_user.await(lookUp(nameOf(number), longWait), "getInstance"));
            if (!found.back() || found.back()->objectId() != _entries[number]->objectId()) fail("another was found");
        });
        report({ { "register_us", registering }, { "look_up_us", lookingUp }, { "release_us", release(found) } });
    }

    [[noreturn]] void serve() { _user.serve(); }

private:
    static std::string nameOf(std::size_t number) { return fmt::format("bench::Entry{:06}", number); }

    void addEntry(std::size_t& left)
    {
        auto entry = fn::makeAuto<Entry>(_registrar.worker(), _entries.size());
        _entries.push_back(entry);
        _registrar.worker().registry()->registerObject(entry, 0).then(
            [&] {
                if (--left == 0) _loop.stop();
            },
            failing("registerObject"));
    }

    fn::Promise<fn::AutoPtr<EntryReference>> lookUp(const std::string& name, fn::Duration timeout)
    {
        EntryReference::wanted = fn::String(name);
        _user.worker().registerObjectReferenceClass<EntryReference>();
        return _user.worker().registry()->getInstance<EntryReference>(timeout);
    }

    /// The median of many, in microseconds.
    template <typename Step> double timed(Step step)
    {
        std::vector<double> times;
        for (std::size_t i = 0; i < timedSteps; ++i) {
            const auto start = Clock::now();
            step(i);
            times.push_back(Microseconds(Clock::now() - start).count());
        }
        return percentile(times, 0.5);
    }

    /// Releasing is a message that nobody answers: all are released, and a look-up behind them is awaited.
    double release(std::vector<fn::AutoPtr<EntryReference>>& found)
    {
        const auto start = Clock::now();
        found.clear();
        _user.await(lookUp(nameOf(0), longWait), "getInstance");
        return Microseconds(Clock::now() - start).count() / static_cast<double>(timedSteps + 1);
    }

    fn::uv::Loop _loop;
    Session _registrar;
    Session _user;
    std::vector<fn::AutoPtr<Entry>> _entries;
    std::size_t _waiters = 0;
};

} // namespace

void playRegistry(const Options& options)
{
    RegistryLoad load(options);
    announceReady();
    const bool growsEntries = options.text("grows") == "entries";
    if (!growsEntries) load.fill(options.count("entries"));
    for (const auto size : sizes(options)) {
        if (growsEntries)
            load.fill(size);
        else
            load.wait(size);
        load.measure();
    }
    load.serve();
}

} // namespace bench::growth
