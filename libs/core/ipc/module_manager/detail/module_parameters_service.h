#pragma once
#include "core/ipc/detail/module_parameters.h"
#include "core/ipc/interface/service.h"

namespace ipc {

class ModuleParametersService final : public Service<ModuleParametersService, ModuleParameters> {
public:
    /// Gives the parameters for the worker of that id, which says that it has the tag; null if it is to have none.
    using Source = std::function<const fn::Value*(WorkerId, const fn::String& workerTag)>;

    ModuleParametersService(Worker& worker, Source source) : Service(worker), _source(std::move(source)) { }

    fn::Value get(const fn::String& workerTag)
    {
        if (const auto* const value = _source(callContext().workerId, workerTag)) return *value;
        throw fn::RuntimeException("No module of that tag has been launched with parameters as this worker");
    }

private:
    const Source _source;
};

} // namespace ipc
