#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "inspector_web/web_request.h"

namespace inspector_web {

/// Asks the inspectors and makes pages of what they say. Lives on the worker's loop, and as long as the worker.
class InspectorPages final : public fn::RefCountedObject {
public:
    static constexpr auto mostTime = fn::Duration::seconds(10); ///< For an answer.

    explicit InspectorPages(ipc::Worker& worker);

    /// The page, or one that tells what is wrong; within a bound in time. Never fails.
    fn::Promise<WebAnswer> answer(const WebRequest& request);

private:
    using Names = std::map<fn::String, fn::String>; // Of inspectors, by key.

    ~InspectorPages() override;
    fn::Promise<WebAnswer> page(const WebRequest& request);
    fn::Promise<WebAnswer> list();
    fn::Promise<WebAnswer> inspector(const WebRequest& request);
    fn::Promise<Names> inspectors();

    ipc::Worker& _worker;
    fn::AutoPtr<core::InspectorRegistry> _service; // Empty until it has been found.
};

} // namespace inspector_web
