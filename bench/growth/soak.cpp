// The same load for a long time: what must not change meanwhile is looked at from outside.
#include "driver/stamp.h"
#include "growth/roles.h"

namespace bench::growth {
namespace {

constexpr std::size_t largeBytes = 1 << 20;
constexpr unsigned largeInFlight = 2;
constexpr std::size_t givenACall = 1000;

/// Objects that live only as long as the references to them: given, called, and dropped.
void useGivenObjects(Session& session, ipc::CallableObjectReference& owner)
{
    const auto given = session.call(owner, "given", givenACall);
    if (given.elements().size() != givenACall) fail("not all objects have arrived");
    const auto argument = stamped(givenACall, smallBytes);
    const auto answer = session.call(*given.elements().back().object<ItemReference>(), "echo", argument);
    if (readStamp(answer.byteArray().bytes()) != answerTo(givenACall)) fail("a wrong result arrived");
}

/// A worker that comes, registers an object, calls another one, and leaves without a word.
void visit(const Options& options, fn::uv::Loop& loop)
{
    Session visitor(options, loop);
    visitor.publish(fn::makeAuto<Item>(visitor.worker()));
    const auto owner = visitor.find<SubjectReference<Part::Owner>>();
    visitor.call(*owner, "echo", stamped(1, smallBytes));
}

double sendLargeCalls(Session& session, const fn::AutoPtr<ipc::CallableObjectReference>& owner, double seconds)
{
    Load load(owner, largeInFlight, largeBytes);
    return measureRate(session, load, seconds) * largeBytes / 1e6;
}

} // namespace

void playSoak(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    session.worker().registerObjectReferenceClass<ItemReference>();
    const auto owner = session.find<SubjectReference<Part::Owner>>();
    announceReady();
    const auto seconds = options.seconds("seconds");
    for (;;) {
        const auto end = Clock::now() + std::chrono::duration<double>(seconds / 8);
        do {
            useGivenObjects(session, *owner);
            visit(options, loop);
        } while (Clock::now() < end);
        const auto calls = measureCalls(session, owner, seconds / 4);
        const auto megabytes = sendLargeCalls(session, owner, seconds / 10);
        report({ { "median_us", calls.median }, { "p99_us", calls.p99 }, { "rate", calls.rate },
            { "megabytes", megabytes } });
        session.runFor(seconds / 10); // To be looked at, at rest.
    }
}

} // namespace bench::growth
