#pragma once
#include "core/ipc/interface/method.h"

/// What the module greeter and its callers agree on.
struct Greeting : ipc::Interface<Greeting> {
    ipc::Method<fn::String(fn::String name)> greet;
    IPC_MEMBERS(greet)
};
