#include "core/ipc_services/inspector/modules_inspector.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"

namespace core {
namespace {

const char* nameOf(ipc::ModuleStatus::State state)
{
    switch (state) {
    case ipc::ModuleStatus::State::NotLaunched: return "not launched";
    case ipc::ModuleStatus::State::Launching: return "launching";
    case ipc::ModuleStatus::State::Running: return "running";
    case ipc::ModuleStatus::State::Overdue:
    case ipc::ModuleStatus::State::Ended: return "ended";
    case ipc::ModuleStatus::State::Stopping: return "stopping";
    case ipc::ModuleStatus::State::Stopped: return "stopped";
    case ipc::ModuleStatus::State::GivenUp: return "given up";
    }
    return "";
}

} // namespace

ModulesInspector::ModulesInspector(const ipc::ModuleManager& manager) : _modules(manager.modulesSource()) { }
ModulesInspector::~ModulesInspector() = default;

InspectionResult ModulesInspector::inspect(const fn::Value&, const fn::Value&)
{
    InspectionResult result;
    InspectionResultWriter writer(result);
    for (const auto& module : _modules()) {
        writer.append(fmt::format("{} ({}{}): {}, launches: {}, time-outs: {}, tag: {}", module.name,
            module.isSeparateProcess ? "process" : "in the main process", module.isOptional ? ", optional" : "",
            nameOf(module.state), module.launches, module.timeouts, module.workerTag));
    }
    return result;
}

} // namespace core
