#pragma once
#include "core/ipc/interface/method.h"

struct Greeter : ipc::Interface<Greeter> { // What the greeter and its callers agree on.
    ipc::Method<fn::String(fn::String name)> greet;
    IPC_MEMBERS(greet)
};
