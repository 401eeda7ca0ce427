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

void appendRegistrations(InspectionResult& result, const ipc::HubInspection& hub, std::size_t skip)
{
    const auto registrations = hub.registrations(skip, limits::inspectorLines);
    InspectionResultWriter writer(result);
    for (const auto& [className, priority, objectId, registeredBy, hidden] : registrations) {
        writer.append(fmt::format("{}: priority {}, object {} of worker {}, registered by worker {}{}", className,
            priority, objectId, ipc::ownerOf(objectId), registeredBy, hidden ? ", hidden" : ""));
    }
    appendMore(result, registrationsKey, skip + registrations.size(), hub.registrationCount());
}

void appendWaiters(InspectionResult& result, const ipc::HubInspection& hub, std::size_t skip)
{
    const auto waiters = hub.waiters(skip, limits::inspectorLines);
    InspectionResultWriter writer(result);
    for (const auto& [className, workerId] : waiters)
        writer.append(fmt::format("{}: awaited by worker {}", className, workerId));
    appendMore(result, waitersKey, skip + waiters.size(), hub.waiterCount());
}

} // namespace

RegistryInspector::RegistryInspector(ipc::Dispatcher& dispatcher) : _hub(dispatcher) { }
RegistryInspector::~RegistryInspector() = default;

InspectionResult RegistryInspector::inspect(const fn::Value& action, const fn::Value&)
{
    InspectionResult result;
    if (!_hub.isAlive()) return result;
    if (const auto* skip = action.find(registrationsKey)) {
        appendRegistrations(result, _hub, skip->to<std::size_t>());
    } else if (const auto* skip = action.find(waitersKey)) {
        appendWaiters(result, _hub, skip->to<std::size_t>());
    } else {
        InspectionResultWriter writer(result);
        writer.append(fmt::format("{} registrations", _hub.registrationCount()));
        appendRegistrations(result, _hub, 0);
        writer.append(fmt::format("{} waiting look-ups", _hub.waiterCount()));
        appendWaiters(result, _hub, 0);
    }
    return result;
}

} // namespace core
