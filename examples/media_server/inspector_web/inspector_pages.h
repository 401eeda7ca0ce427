#pragma once
#include "api/inspection.h"
#include "inspector_web/web_request.h"

namespace media {

/// Asks the inspectors and makes pages of what they say. Lives on the worker's loop, and as long as the worker.
class InspectorPages final : public fn::RefCountedObject {
public:
    static constexpr auto mostTime = fn::Duration::seconds(10); ///< For an answer.

    explicit InspectorPages(ipc::Worker& worker);

    /// The page, or one that tells what is wrong; within a bound in time. Never fails.
    fn::Promise<WebAnswer> answer(const WebRequest& request);

private:
    using Service = fn::AutoPtr<core::InspectorRegistry>;

    ~InspectorPages() override;
    fn::Promise<WebAnswer> page(const WebRequest& request);
    fn::Promise<WebAnswer> list();
    fn::Promise<WebAnswer> inspector(const WebRequest& request);
    fn::Promise<Service> service();
    fn::Promise<WebAnswer> bounded(const fn::Promise<WebAnswer>& work);

    ipc::Worker& _worker;
    Service _service; // Empty until it has been found.
};

} // namespace media
