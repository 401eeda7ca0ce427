// What the death of a worker costs that holds references, and those who have nothing to do with it.
#include "growth/roles.h"
#include <algorithm>

namespace bench::growth {
namespace {

constexpr std::size_t referencesACall = 1000;
constexpr double probedSeconds = 0.2;

/// Makes so many items for `holder`, who alone keeps them alive.
void give(Session& session, ipc::CallableObjectReference& holder, std::size_t count)
{
    while (count > 0) {
        const auto part = std::min(count, referencesACall);
        fn::Value::Array items;
        for (std::size_t i = 0; i < part; ++i) items.push_back(fn::makeAuto<Item>(session.worker()));
        session.call(holder, "hold", fn::Value(std::move(items)));
        count -= part;
    }
    session.runFor(0.01); // What was still to be deleted has gone.
}

/// Kills who holds; the time until its items have gone, in milliseconds. `left` are held by others.
double kill(Session& session, ipc::CallableObjectReference& holder, std::size_t left)
{
    bool isDead = false;
    const auto start = Clock::now();
    holder.callMethod("die", {}).then([](const fn::Value&) { fail("who is dead has answered"); },
        [&](std::exception_ptr) {
            isDead = true;
            session.loop().stop();
        });
    Item::onFewer = [&, left] {
        if (Item::count() == left) session.loop().stop();
    };
    session.runUntil([&] { return isDead && Item::count() <= left; });
    Item::onFewer = {};
    if (Item::count() != left) fail("a death has freed what others hold");
    return Microseconds(Clock::now() - start).count() / 1000;
}

} // namespace

void playDeath(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    const auto holder = session.find<SubjectReference<Part::Holder>>();
    const auto other = session.find<SubjectReference<Part::Other>>();
    const auto prober = session.find<SubjectReference<Part::Prober>>();
    announceReady();
    const auto left = options.count("others");
    give(session, *other, left);
    give(session, *holder, options.count("held"));
    if (Item::count() != left + options.count("held")) fail("not all items live");

    session.call(*prober, "probe", true);
    session.runFor(probedSeconds);
    const auto idle = session.call(*prober, "probe", false);

    session.call(*prober, "probe", true);
    session.runFor(probedSeconds / 4);
    const auto freed = kill(session, *holder, left);
    session.runFor(std::max(probedSeconds * 3 / 4 - freed / 1000, 0.01));
    const auto during = session.call(*prober, "probe", false);
    report({ { "freed_ms", freed }, { "idle_us", idle.at("median").toDouble() },
        { "idle_worst_ms", idle.at("worst").toDouble() / 1000 },
        { "worst_ms", during.at("worst").toDouble() / 1000 } });
    session.serve();
}

} // namespace bench::growth
