// The module greeter: a process of its own that serves the interface.
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "greeting.h"

class Greeter final : public ipc::Service<Greeter, Greeting> {
public:
    using Service::Service;
    fn::String greet(const fn::String& name) { return "Hello, " + name + "!"; }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<Greeter>, "Greeter")
