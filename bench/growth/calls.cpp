// Calls while something else grows: the number of workers, of objects, or of large messages on the same connections.
#include "growth/roles.h"
#include <algorithm>

namespace bench::growth {
namespace {

constexpr std::size_t bulkBytes = 1 << 20;
constexpr std::size_t itemsACall = 1000;

void reportCalls(const CallFigures& calls)
{
    report({ { "median_us", calls.median }, { "p99_us", calls.p99 }, { "rate", calls.rate } });
}

/// The latencies of small calls while so many bulk calls are in flight, to the same object.
std::vector<double> besideBulk(
    Session& session, const fn::AutoPtr<ipc::CallableObjectReference>& owner, unsigned window, double seconds)
{
    Load bulk(owner, window, bulkBytes);
    bulk.start();
    auto latencies = measureLatencies(session, owner, seconds, smallBytes);
    bool isDone = false;
    bulk.stop([&] {
        isDone = true;
        session.loop().stop();
    });
    session.runUntil([&] { return isDone; });
    if (bulk.answered() < 2) fail("hardly any bulk call has been made");
    return latencies;
}

} // namespace

void takeItems(Session& session, ipc::CallableObjectReference& owner, std::size_t from, std::size_t to,
    std::vector<fn::AutoPtr<ItemReference>>& items)
{
    while (from < to) {
        const auto end = std::min(from + itemsACall, to);
        const auto batch = session.call(owner, "items", fn::Value::map({ { "from", from }, { "to", end } }));
        for (const auto& item : batch.elements()) items.push_back(item.object<ItemReference>());
        from = end;
    }
    if (items.size() != to || std::ranges::any_of(items, [](const auto& item) { return !item || item->local(); })) {
        fail("not all references have arrived");
    }
}

void playCalls(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    const auto owner = session.find<SubjectReference<Part::Owner>>();
    announceReady();
    reportCalls(measureCalls(session, owner, options.seconds("seconds")));
    session.serve();
}

void playObjects(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    session.worker().registerObjectReferenceClass<ItemReference>();
    const auto owner = session.find<SubjectReference<Part::Owner>>();
    announceReady();
    std::vector<fn::AutoPtr<ItemReference>> items;
    for (const auto size : sizes(options)) {
        takeItems(session, *owner, items.size(), size, items);
        reportCalls(measureCalls(session, items[size / 2], options.seconds("seconds")));
    }
    session.serve();
}

void playBulk(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    const auto owner = session.find<SubjectReference<Part::Owner>>();
    announceReady();
    const auto seconds = options.seconds("seconds");
    auto small = measureLatencies(session, owner, seconds, smallBytes);
    auto large = measureLatencies(session, owner, seconds, bulkBytes);
    report({ { "median_us", percentile(small, 0.5) }, { "p99_us", percentile(small, 0.99) },
        { "bulk_us", percentile(large, 0.5) } });
    for (const auto window : sizes(options)) {
        auto beside = besideBulk(session, owner, static_cast<unsigned>(window), seconds);
        report({ { "median_us", percentile(beside, 0.5) }, { "p99_us", percentile(beside, 0.99) } });
    }
    session.serve();
}

} // namespace bench::growth
