#pragma once
#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc_services/inspector/inspector.h"

namespace core {

/// Shows the registrations of the object registry, by class and in the order in which a look-up prefers them: with priority,
/// owner and whether the instance is hidden; and the look-ups that wait. Published in the main process. Shows nothing once the
/// dispatcher has gone.
///
/// Actions: nil shows the beginning of both lists; {"registrations": n} and {"waiters": n} show one list behind its first n.
class FN_EXPORT RegistryInspector final : public Inspector {
public:
    explicit RegistryInspector(ipc::Dispatcher& dispatcher); ///< Shows the registry of this dispatcher, while it lives.

    using Inspector::inspect;
    InspectionResult inspect(const fn::Value& action, const fn::Value& refererAction) override;

private:
    ~RegistryInspector() override;

    const ipc::HubInspection _hub;
};

} // namespace core
