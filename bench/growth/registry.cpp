// The registry with many entries and many who wait for what is not there.
#include "growth/roles.h"
#include <algorithm>
#include <fmt/format.h>

namespace bench::growth {
namespace {

constexpr std::size_t timedSteps = 50;
constexpr std::size_t together = 1000; // Steps that are under way at the same time while the tables are filled.
constexpr auto longWait = fn::Duration::seconds(3600);

const fn::String dyingName("bench::Dying");
fn::String nameOf(std::size_t number) { return fn::String(fmt::format("bench::Entry{:06}", number)); }
fn::String missingName(std::size_t number) { return fn::String(fmt::format("bench::Missing{:06}", number)); }

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
    Entry(ipc::Worker& worker, fn::String name) : CallableObjectInstance(worker), _name(std::move(name)) { }

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
    RegistryLoad(const Options& options, fn::uv::Loop& loop)
        : _options(options),
          _loop(loop),
          _registrar(options, loop),
          _user(options, loop)
    {
    }

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
        for (; _waiters < waiters; ++_waiters) {
            lookUp(missingName(_waiters))
                .then([](auto&&) { fail("what does not exist was found"); }, failing("getInstance"));
        }
        _user.await(lookUp(nameOf(0)), "getInstance"); // Behind all of them.
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
            found.push_back(_user.await(lookUp(nameOf(number)), "getInstance"));
            if (!found.back() || found.back()->objectId() != _entries[number]->objectId()) fail("another was found");
        });
        const auto releasing = release(found);
        report({ { "register_us", registering }, { "look_up_us", lookingUp }, { "release_us", releasing },
            { "death_us", timed([&](std::size_t) { return death(); }) },
            { "hide_us", timed([&](std::size_t) { hide(); }) } });
    }

    [[noreturn]] void serve() { _user.serve(); }

private:
    void addEntry(std::size_t& left)
    {
        auto entry = fn::makeAuto<Entry>(_registrar.worker(), nameOf(_entries.size()));
        _entries.push_back(entry);
        _registrar.worker().registry()->registerObject(entry, 0).then(
            [&] {
                if (--left == 0) _loop.stop();
            },
            failing("registerObject"));
    }

    static fn::Promise<fn::AutoPtr<EntryReference>> lookUp(ipc::Worker& worker, const fn::String& name)
    {
        EntryReference::wanted = name;
        worker.registerObjectReferenceClass<EntryReference>();
        return worker.registry()->getInstance<EntryReference>(longWait);
    }

    /// The user's.
    fn::Promise<fn::AutoPtr<EntryReference>> lookUp(const fn::String& name) { return lookUp(_user.worker(), name); }

    /// The median of many, in microseconds. A step may say itself how long it took.
    template <typename Step> double timed(Step step)
    {
        std::vector<double> times;
        for (std::size_t i = 0; i < timedSteps; ++i) {
            const auto start = Clock::now();
            if constexpr (std::is_void_v<decltype(step(i))>) {
                step(i);
                times.push_back(Microseconds(Clock::now() - start).count());
            } else {
                times.push_back(step(i));
            }
        }
        return percentile(times, 0.5);
    }

    /// What a worker without entries does that wants to end because it is idle.
    void hide() { _user.call(*_user.worker().registry(), "setInstancesHidden", true); }

    /// A worker that offers one object and waits for another one dies: the time until who uses the object hears of it.
    double death()
    {
        const auto dying = std::make_unique<Session>(_options, _loop);
        // The instance outlives its worker, whose registry holds it.
        dying->publish(fn::makeAuto<Entry>(dying->worker(), dyingName));
        const auto used = _user.await(lookUp(dyingName), "getInstance");
        lookUp(dying->worker(), missingName(_waiters))
            .then([](auto&&) { fail("what does not exist was found"); }, [](std::exception_ptr) {});
        dying->await(lookUp(dying->worker(), dyingName), "getInstance"); // Behind it.
        used->objectDeadSignal().connect([this] { _loop.stop(); }).detach();
        const auto start = Clock::now();
        dying->worker().stop();
        _user.runUntil([&] { return used->dead(); });
        return Microseconds(Clock::now() - start).count();
    }

    /// Releasing is a message that nobody answers: all are released, and a look-up behind them is awaited.
    double release(std::vector<fn::AutoPtr<EntryReference>>& found)
    {
        const auto start = Clock::now();
        found.clear();
        _loop.post([this] { _loop.stop(); }); // Behind the tasks that delete them and send the releases.
        _loop.run();
        _user.await(lookUp(nameOf(0)), "getInstance");
        return Microseconds(Clock::now() - start).count() / static_cast<double>(timedSteps + 1);
    }

    const Options _options;
    fn::uv::Loop& _loop;
    Session _registrar;
    Session _user;
    std::vector<fn::AutoPtr<Entry>> _entries;
    std::size_t _waiters = 0;
};

} // namespace

void playRegistry(const Options& options, fn::uv::Loop& loop)
{
    RegistryLoad load(options, loop);
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
