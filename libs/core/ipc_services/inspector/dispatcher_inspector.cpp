#include "core/ipc_services/inspector/dispatcher_inspector.h"
#include "base/utf8.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/limits.h"
#include <algorithm>
#include <ranges>

namespace core {
namespace {

constexpr const char* fromKey = "from";
constexpr const char* workerKey = "worker";
constexpr std::size_t shownHolders = 20;
constexpr std::size_t shownNameBytes = 200;

fn::Value pageOf(ipc::WorkerId workerId, ipc::ObjectId from = 0)
{
    return fn::Value::map({ { fromKey, from }, { workerKey, workerId } });
}

/// "Media (t1, 3)". Names and tags are cut, since workers choose them, of any length.
fn::String nameOf(const ipc::Dispatcher::WorkerInfo& info)
{
    const auto shortened = [](const fn::String& text) { return fn::String(fn::cutText(text, shownNameBytes)); };
    return ipc::Dispatcher::WorkerInfo { info.workerId, shortened(info.displayName), shortened(info.tag) }.toString();
}

/// "worker 3 (2), worker 4 (1)".
std::string holdersOf(std::span<const ipc::HubInspection::Holder> holders)
{
    std::string text;
    const auto shown = std::min(holders.size(), shownHolders);
    for (const auto& [workerId, count] : holders.first(shown))
        text += fmt::format("{}worker {} ({})", text.empty() ? "" : ", ", workerId, count);
    if (shown < holders.size()) text += fmt::format(" and {} more", holders.size() - shown);
    return text;
}

} // namespace

DispatcherInspector::DispatcherInspector(ipc::Dispatcher& dispatcher) : _hub(dispatcher) { }
DispatcherInspector::~DispatcherInspector() = default;

InspectionResult DispatcherInspector::inspect(const fn::Value& action, const fn::Value&)
{
    if (!_hub.isAlive()) return {};
    if (action.isNil()) return allWorkers();
    return oneWorker(action.at(workerKey).to<ipc::WorkerId>(), action.get(fromKey).to<ipc::ObjectId>());
}

InspectionResult DispatcherInspector::allWorkers() const
{
    InspectionResult result;
    InspectionResultWriter writer(result);
    for (const auto& worker : _hub.workers()) {
        const auto id = worker.info.workerId;
        writer.append(
            fmt::format("{}: {} objects in use, {} messages ({} bytes) in, {} ({} bytes) out", nameOf(worker.info),
                _hub.ownedCount(id), worker.framesReceived, worker.bytesReceived, worker.framesSent, worker.bytesSent),
            pageOf(id));
    }
    return result;
}

InspectionResult DispatcherInspector::oneWorker(ipc::WorkerId workerId, ipc::ObjectId from) const
{
    InspectionResult result;
    const auto workers = _hub.workers();
    const auto worker = std::ranges::find(workers, workerId, [](const auto& entry) { return entry.info.workerId; });
    if (worker == workers.end()) {
        result.redirectAction = fn::Value();
        return result;
    }
    InspectionResultWriter(result)
        .append(nameOf(worker->info), pageOf(workerId))
        .append(fmt::format("Messages in: {} ({} bytes)", worker->framesReceived, worker->bytesReceived))
        .append(fmt::format("Messages out: {} ({} bytes)", worker->framesSent, worker->bytesSent))
        .append(fmt::format("Waiting for it: {} bytes", worker->bytesWaiting))
        .append(fmt::format("Objects in use: {}", _hub.ownedCount(workerId)));
    appendObjects(result, workerId, from);
    return result;
}

void DispatcherInspector::appendObjects(InspectionResult& result, ipc::WorkerId owner, ipc::ObjectId from) const
{
    InspectionResultWriter writer(result);
    const auto ids = _hub.owned(owner, from, limits::inspectorLines + 1);
    for (const auto id : ids | std::views::take(limits::inspectorLines)) {
        writer.append(
            fmt::format("Object {}: sent {} times, held by {}", id, _hub.sentCount(id), holdersOf(_hub.holders(id))));
    }
    if (ids.size() > limits::inspectorLines) writer.append("More objects", pageOf(owner, ids.back()));
}

} // namespace core
