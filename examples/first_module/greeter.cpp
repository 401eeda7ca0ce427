#include "greeter.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"

/// The instance of the greeter, in its owner.
class GreeterImpl final : public ipc::CallableObjectInstance {
public:
    using CallableObjectInstance::CallableObjectInstance;

private:
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override
    {
        if (name == "greet")
            sendResult(context, "Hello, " + argument.asString() + "!");
        else
            sendUnknownMethod(context, name);
    }

    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<Greeter>(initializer);
    }
};

class GreeterModule final : public ipc::Module {
public:
    using Module::Module;
    void onConnected() override { worker().registry()->registerObject(fn::makeAuto<GreeterImpl>(worker()), 0); }
};

IPC_MODULE_ENTRY_POINT(GreeterModule, "Greeter")
