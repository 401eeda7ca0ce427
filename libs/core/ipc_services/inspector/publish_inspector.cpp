#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/ipc/registry.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "foundation/logging/logging.h"

namespace core {
namespace {

FN_LOG_CATEGORY("core.inspector");

constexpr auto findTimeout = fn::Duration::seconds(20);

class PageInspector final : public Inspector {
public:
    explicit PageInspector(WritePage writePage) : _writePage(std::move(writePage)) { }

    using Inspector::inspect;
    InspectionResult inspect(const fn::Value& action, const fn::Value&) override
    {
        InspectionResult result;
        InspectionResultWriter page(result);
        _writePage(action, page);
        return result;
    }

private:
    WritePage _writePage;
};

fn::Promise<void> publish(ipc::Worker& worker, fn::String name, fn::AutoPtr<Inspector> inspector)
{
    try {
        const auto inspectors = co_await worker.registry()->getInstance<InspectorRegistry>(findTimeout);
        co_await inspectors->registerInspector(name, inspector);
    } catch (const fn::EndedException&) { // Comes at the end of the application, and is no fault.
    } catch (const std::exception& exception) {
        FN_LOG(Warning, "The inspector {} is missing: {}", name.view(), exception.what());
    }
}

} // namespace

void publishInspector(ipc::Worker& worker, const fn::String& name, const fn::AutoPtr<Inspector>& inspector)
{
    publish(worker, name, inspector).ignore();
}

void publishInspector(ipc::Worker& worker, const fn::String& name, WritePage writePage)
{
    publishInspector(worker, name, fn::makeAuto<PageInspector>(std::move(writePage)));
}

} // namespace core
