#pragma once
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"

namespace ipc {

/// A module that offers one object of each of these services, from the moment at which it is connected:
///
///     IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<GreeterService>, "Greeter")
///
/// A service whose constructor takes `(Worker&, const fn::Value& parameters)` gets the module's parameters. If a constructor throws, the
/// module fails with that (`Module::fail()`).
template <typename... Services> class ServiceModule : public Module {
public:
    using Module::Module;

    void onConnected() override
    {
        try {
            (worker().registry()->registerObject(make<Services>(), 0), ...);
        } catch (const std::exception& exception) {
            fail(exception.what());
        }
    }

private:
    template <typename S> fn::AutoPtr<S> make()
    {
        if constexpr (std::is_constructible_v<S, Worker&, const fn::Value&>)
            return fn::makeAuto<S>(worker(), parameters());
        else
            return fn::makeAuto<S>(worker());
    }
};

} // namespace ipc
