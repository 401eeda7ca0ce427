#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "inspector_web/web_request.h"

namespace inspector_web {

/// Asks the inspectors and makes pages of their answers, on the worker's loop. Outlives the answers that are not cancelled.
class InspectorPages {
public:
    static constexpr auto mostTime = fn::Duration::seconds(10); ///< The time for one answer.

    explicit InspectorPages(ipc::Worker& worker);

    /// The page that is asked for, or within `mostTime` one that tells what is wrong. Never fails.
    fn::Promise<WebAnswer> answer(WebRequest request);

private:
    fn::Promise<WebAnswer> page(WebRequest& request);

    ipc::Worker& _worker;
    fn::AutoPtr<core::InspectorRegistry> _service; // Empty until the service has been found.
};

} // namespace inspector_web
