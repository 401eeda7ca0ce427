#pragma once
#include "core/ipc/interface/event.h"
#include "core/ipc/interface/method.h"

/// Tells which pictures come into a folder.
struct Watcher : ipc::Interface<Watcher> {
    ipc::Method<void(fn::String folder)> watch;
    ipc::Event<fn::String> appeared; // The path of a picture, once it is written.
    IPC_MEMBERS(watch, appeared)
};
