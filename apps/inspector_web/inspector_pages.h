#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "inspector_web/web_request.h"

namespace inspector_web {

/// Asks the inspectors and makes pages of their answers. Lives on the worker's loop, and as long as the worker.
class InspectorPages final : public fn::RefCountedObject {
public:
    static constexpr auto mostTime = fn::Duration::seconds(10); ///< The time for one answer.

    explicit InspectorPages(ipc::Worker& worker);

    /// The page that is asked for, or within `mostTime` one that tells what is wrong. Never fails.
    fn::Promise<WebAnswer> answer(const WebRequest& request);

private:
    using Names = std::map<fn::String, fn::String>; // The inspectors' names by key.

    ~InspectorPages() override;
    fn::Promise<WebAnswer> page(const WebRequest& request);
    fn::Promise<WebAnswer> list();
    fn::Promise<WebAnswer> inspector(const WebRequest& request);
    fn::Promise<Names> inspectors();

    ipc::Worker& _worker;
    fn::AutoPtr<core::InspectorRegistry> _service; // Empty until the service has been found.
};

} // namespace inspector_web
