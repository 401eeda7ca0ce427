#include "greeter.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"

class GreeterService final : public ipc::Service<GreeterService, Greeter> {
public:
    using Service::Service;
    fn::String greet(const fn::String& name) { return "Hello, " + name + "!"; } // Or a coroutine that gives a promise.
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<GreeterService>, "Greeter")
