#include "api/inspection.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/ipc/registry.h"
#include "foundation/logging/logging.h"

namespace media {
namespace {

constexpr auto findTimeout = fn::Duration::seconds(20);
constexpr int mostRedirections = 10;

const fn::logging::Category& category()
{
    static const auto& result = fn::logging::CategoryManager::instance().getCategory("mediaServer.inspectors");
    return result;
}

fn::Promise<InspectedPage> follow(const fn::AutoPtr<core::InspectorReference>& inspector, const fn::Value& action,
    const fn::Value& referer, int redirectionsLeft)
{
    return inspector->inspect(action, referer).then([=](core::InspectionResult&& result) {
        if (!result.redirectAction)
            return fn::Promise<InspectedPage>::fulfilled(InspectedPage { action, std::move(result) });
        if (redirectionsLeft == 0)
            throw fn::RuntimeException("The page leads in circles", fn::Exception::StackTrace::None);
        return follow(inspector, *result.redirectAction, action, redirectionsLeft - 1);
    });
}

} // namespace

fn::Promise<fn::AutoPtr<core::InspectorRegistry>> findInspectors(ipc::Worker& worker)
{
    return worker.registry()->getInstance<core::InspectorRegistry>(findTimeout);
}

void publish(ipc::Worker& worker, const fn::String& name, const fn::AutoPtr<core::Inspector>& inspector)
{
    findInspectors(worker)
        .then([name, inspector](fn::AutoPtr<core::InspectorRegistry>&& inspectors) {
            return inspectors->registerInspector(name, inspector);
        })
        .then([](unsigned int&&) {},
            [name](std::exception_ptr failure) {
                FN_LOG_TO(category(), logPriority(failure), {}, "examples/media_server/api",
                    "The inspector {} is missing: {}", name.view(), describe(failure));
            });
}

fn::Promise<InspectedPage> inspect(
    const fn::AutoPtr<core::InspectorReference>& inspector, const fn::Value& action, const fn::Value& referer)
{
    return follow(inspector, action, referer, mostRedirections);
}

} // namespace media
