#pragma once
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc_services/inspector/inspector.h"

namespace core {

/// Shows the modules that a manager supervises: the state of each, and how often it was launched. Published in the main
/// process. The manager may move; once it has been destroyed, nothing is shown.
class FN_EXPORT ModulesInspector final : public Inspector {
public:
    explicit ModulesInspector(const ipc::ModuleManager& manager); ///< Shows the modules of this manager.

    using Inspector::inspect;
    InspectionResult inspect(const fn::Value& action, const fn::Value& refererAction) override;

private:
    ~ModulesInspector() override;

    const std::function<std::vector<ipc::ModuleStatus>()> _modules;
};

} // namespace core
