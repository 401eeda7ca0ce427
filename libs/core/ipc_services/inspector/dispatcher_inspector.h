#pragma once
#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc_services/inspector/inspector.h"

namespace core {

/// Shows the workers that are connected to the hub and their traffic; for each worker the objects of it that others use: how
/// often the worker has sent an object, and which workers hold it how many times. Published in the main process. Shows nothing
/// once the dispatcher has gone.
///
/// Names the first 20 holders of an object, and cuts names after 200 bytes.
///
/// Actions: nil shows all workers; {"worker": id, "from": object id, 0 if absent} shows one worker and its objects, or
/// redirects to all workers if that one is not connected.
class FN_EXPORT DispatcherInspector final : public Inspector {
public:
    explicit DispatcherInspector(ipc::Dispatcher& dispatcher); ///< Shows this dispatcher, while it lives.

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
