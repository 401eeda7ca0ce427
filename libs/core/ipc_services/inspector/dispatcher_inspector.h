#pragma once
#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc_services/inspector/inspector.h"

namespace core {

/// Shows who is connected to the hub, what has gone to and fro, and, of each worker, the objects that others use: how often
/// its owner has sent it, and who holds it how many times. Published in the main process. Shows nothing once the dispatcher
/// has gone.
///
/// Of an object's holders the first 20 are named, names are cut after 200 bytes.
///
/// Actions: nil, all workers; {"worker": id, "from": object id, 0 if absent}, one of them and its objects. A worker that has
/// gone redirects to all.
class FN_EXPORT DispatcherInspector final : public Inspector {
public:
    explicit DispatcherInspector(ipc::Dispatcher& dispatcher);

    using Inspector::inspect;
    InspectionResult inspect(const fn::Value& action, const fn::Value& refererAction) override;

private:
    ~DispatcherInspector() override;
    InspectionResult allWorkers() const;
    InspectionResult oneWorker(ipc::WorkerId workerId, ipc::ObjectId from) const;
    void appendObjects(InspectionResult& result, ipc::WorkerId owner, ipc::ObjectId from) const;

    const ipc::HubInspection _hub;
};

} // namespace core
