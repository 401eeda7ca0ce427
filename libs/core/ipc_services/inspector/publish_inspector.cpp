#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/ipc/registry.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "foundation/logging/logging.h"

namespace core {
namespace {

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

void tellFailure(const fn::String& name, std::exception_ptr failure)
{
    const auto& category = fn::logging::category<"core.inspector">();
    try {
        std::rethrow_exception(failure);
    } catch (const fn::EndedException&) { // Comes at the end of the application, and is no fault.
    } catch (const std::exception& exception) {
        FN_LOG_TO(category, fn::logging::Warning, {}, "libs/core/inspector", "The inspector {} is missing: {}",
            name.view(), exception.what());
    }
}

} // namespace

void publishInspector(ipc::Worker& worker, const fn::String& name, const fn::AutoPtr<Inspector>& inspector)
{
    worker.registry()
        ->getInstance<InspectorRegistry>(findTimeout)
        .then([name, inspector](fn::AutoPtr<InspectorRegistry>&& inspectors) {
            return inspectors->registerInspector(name, inspector);
        })
        .then([](unsigned int&&) {}, [name](std::exception_ptr failure) { tellFailure(name, failure); });
}

void publishInspector(ipc::Worker& worker, const fn::String& name, WritePage writePage)
{
    publishInspector(worker, name, fn::makeAuto<PageInspector>(std::move(writePage)));
}

} // namespace core
