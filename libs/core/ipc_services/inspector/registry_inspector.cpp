#include "core/ipc_services/inspector/registry_inspector.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/limits.h"
#include <fmt/format.h>

namespace core {
namespace {

constexpr const char* registrationsKey = "registrations";
constexpr const char* waitersKey = "waiters";

/// Appends the line that leads on where a list of `count` entries is longer than the `shown` ones.
void appendMore(InspectionResult& result, const char* key, std::size_t shown, std::size_t count)
{
    if (shown >= count) return;
    InspectionResultWriter(result).append(fmt::format("More {}", key), fn::Value::map({ { key, shown } }));
}

void appendRegistrations(InspectionResult& result, const ipc::RegistryImpl& registry, std::size_t skip)
{
    const auto registrations = registry.registrations(skip, limits::inspectorLines);
    InspectionResultWriter writer(result);
    for (const auto& [className, priority, objectId, registeredBy, hidden] : registrations) {
        writer.append(fmt::format("{}: priority {}, object {} of worker {}, registered by worker {}{}", className,
            priority, objectId, ipc::ownerOf(objectId), registeredBy, hidden ? ", hidden" : ""));
    }
    appendMore(result, registrationsKey, skip + registrations.size(), registry.registrationCount());
}

void appendWaiters(InspectionResult& result, const ipc::RegistryImpl& registry, std::size_t skip)
{
    const auto waiters = registry.waiters(skip, limits::inspectorLines);
    InspectionResultWriter writer(result);
    for (const auto& [className, workerId] : waiters)
        writer.append(fmt::format("{}: awaited by worker {}", className, workerId));
    appendMore(result, waitersKey, skip + waiters.size(), registry.waiterCount());
}

} // namespace

RegistryInspector::RegistryInspector(const fn::AutoPtr<ipc::RegistryImpl>& registry) : _registry(registry) { }
RegistryInspector::~RegistryInspector() = default;

InspectionResult RegistryInspector::inspect(const fn::Value& action, const fn::Value&)
{
    InspectionResult result;
    const auto registry = _registry.lock();
    if (!registry) return result;
    if (const auto* skip = action.find(registrationsKey)) {
        appendRegistrations(result, *registry, skip->to<std::size_t>());
    } else if (const auto* skip = action.find(waitersKey)) {
        appendWaiters(result, *registry, skip->to<std::size_t>());
    } else {
        InspectionResultWriter writer(result);
        writer.append(fmt::format("{} registrations", registry->registrationCount()));
        appendRegistrations(result, *registry, 0);
        writer.append(fmt::format("{} waiting look-ups", registry->waiterCount()));
        appendWaiters(result, *registry, 0);
    }
    return result;
}

} // namespace core
