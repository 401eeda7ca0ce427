// A module that can not do without parameters, unless it has none.
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "core/module_manager/told.h"

namespace test {
namespace {

class ToldService final : public ipc::Service<ToldService, Told> {
public:
    ToldService(ipc::Worker& worker, const fn::Value& parameters) : Service(worker)
    {
        if (!parameters.isNil()) _settings = ipc::fromValue<Settings>(parameters);
    }
    Settings settings() { return _settings; }

private:
    Settings _settings;
};

} // namespace
} // namespace test

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<test::ToldService>, "Told")
