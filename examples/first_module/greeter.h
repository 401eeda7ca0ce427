#pragma once
#include "core/ipc/object/callable_object_reference.h"

/// A reference to the greeter, in whichever process that lives.
class Greeter final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    fn::Promise<fn::String> greet(const fn::String& name)
    {
        return callMethod("greet", name).then([](fn::Value&& greeting) { return greeting.asString(); });
    }
};
