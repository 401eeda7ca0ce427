// Many calls that wait for their answers.
#include "driver/stamp.h"
#include "growth/roles.h"

namespace bench::growth {
namespace {

constexpr std::size_t batch = 100;
constexpr std::size_t timedBatches = 100;

class PendingLoad {
public:
    PendingLoad(Session& session, fn::AutoPtr<ipc::CallableObjectReference> owner)
        : _session(session),
          _owner(std::move(owner))
    {
    }

    void growTo(std::size_t pending)
    {
        while (_made - _answered < pending) make();
        _session.call(*_owner, "echo", stamped(0, smallBytes)); // Behind all of them: they are there.
    }

    /// Makes a batch of calls, and has the oldest ones answered, again and again; so many more stay pending.
    void measure(double seconds)
    {
        const auto pending = _made - _answered;
        std::vector<double> making;
        std::vector<double> resolving;
        for (std::size_t round = 0; round < timedBatches; ++round) {
            const auto start = Clock::now();
            for (std::size_t i = 0; i < batch; ++i) make();
            making.push_back(sinceStart(start));
            growTo(pending + batch);
            const auto answering = Clock::now();
            const auto target = _answered + batch;
            _session.call(*_owner, "answer", batch);
            resolving.push_back(sinceStart(answering));
            if (_answered != target) fail("not all calls were answered");
        }
        auto latencies = measureLatencies(_session, _owner, seconds, smallBytes);
        report({ { "make_us", percentile(making, 0.5) }, { "resolve_us", percentile(resolving, 0.5) },
            { "call_us", percentile(latencies, 0.5) } });
    }

private:
    static double sinceStart(Clock::time_point start)
    {
        return Microseconds(Clock::now() - start).count() / static_cast<double>(batch);
    }

    void make()
    {
        _owner->callMethod("later", stamped(_made, smallBytes))
            .then(
                [this, number = _made](const fn::Value& result) {
                    if (readStamp(result.byteArray().bytes()) != answerTo(number)) fail("a wrong result arrived");
                    ++_answered;
                },
                failing("later"));
        ++_made;
    }

    Session& _session;
    const fn::AutoPtr<ipc::CallableObjectReference> _owner;
    std::size_t _made = 0;
    std::size_t _answered = 0;
};

} // namespace

void playPending(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    const auto owner = session.find<SubjectReference<Part::Owner>>();
    announceReady();
    PendingLoad load(session, owner);
    for (const auto size : sizes(options)) {
        load.growTo(size);
        load.measure(options.seconds("seconds") / 4);
    }
    session.serve();
}

} // namespace bench::growth
